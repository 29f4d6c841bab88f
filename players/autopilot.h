// autopilot.h - which keys a player would hold now, for programs that play without one. Pure: it looks at the
// state, and ahead by playing copies of it. Its choices are whole-number arithmetic, the same on every
// machine.
#pragma once

#include <algorithm>
#include <cstdint>

#include "game/simulation.h"

namespace brickfall {

struct AutopilotKeys {
    bool left = false;
    bool right = false;
    bool serve = false;
};

namespace autopilot {

// No way along the paddle's range takes more steps, and a flight that has hit nothing by then never will.
inline constexpr int32_t kStepsAcross = 24;
inline constexpr int kMostStepsOfFlight = 2'000;

inline int32_t PaddleSpeed(const GameState& game) {
    return game.level <= 8 ? kPaddleSpeedLow : kPaddleSpeedHigh;
}

// Far from the paddle there is nothing to do, which is what keeps the autopilot cheap.
inline bool IsNearPaddle(const GameState& game) {
    return game.ball_live && game.ball_vy > 0 && game.ball_y >= kBrickBottom + kBallHalf &&
           game.ball_y + game.ball_vy * kStepsAcross >= kPaddleTop - kBallHalf;
}

// A copy of the game just before the step in which the ball reaches the paddle's height.
inline GameState FallToPaddle(GameState game) {
    game.left_held = false;
    game.right_held = false;
    while (game.ball_y + game.ball_vy < kPaddleTop - kBallHalf) StepGame(game, game.last_step_ms + kTickMs);
    return game;
}

inline int HitsLeft(const GameState& game) {
    int hits = 0;
    for (const auto& row : game.bricks) {
        for (const uint8_t brick : row) hits += brick;
    }
    return hits;
}

// Whether a bounce with the paddle there hits a brick before the ball comes down again.
inline bool BounceHitsABrick(GameState game, int32_t paddle_x) {
    const int hits_before = HitsLeft(game);
    const int32_t level_before = game.level;
    game.paddle_x = paddle_x;
    StepGame(game, game.last_step_ms + kTickMs);
    if (game.ball_vy >= 0) return false;  // missed
    for (int step = 0; step < kMostStepsOfFlight && !IsNearPaddle(game); ++step) {
        StepGame(game, game.last_step_ms + kTickMs);
        const bool beside_the_wall = game.ball_y >= kBrickBottom + kBallHalf && game.ball_vy > 0;
        if (game.level != level_before) return true;
        if (beside_the_wall) break;
    }
    return HitsLeft(game) < hits_before;
}

inline AutopilotKeys MoveTo(const GameState& game, int32_t paddle_x) {
    return {.left = paddle_x<game.paddle_x, .right = paddle_x> game.paddle_x};
}

}  // namespace autopilot

// Plays to win: never misses a ball, and bounces it so that it hits bricks and walls get cleared.
inline AutopilotKeys AutopilotPlay(const GameState& game) {
    using namespace autopilot;
    if (!game.ball_live) return {.serve = true};
    if (!IsNearPaddle(game)) return {};
    const GameState landing = FallToPaddle(game);
    const int32_t limit = kFieldW - game.paddle_w;
    // The paddle stops only at whole steps from where it is, and at the walls: the nearest good place wins.
    for (int32_t steps = 0; steps <= kStepsAcross; ++steps) {
        for (const int32_t way : {-steps, steps}) {
            const int32_t place = std::clamp(game.paddle_x + way * PaddleSpeed(game), 0, limit);
            if (BounceHitsABrick(landing, place)) return MoveTo(game, place);
        }
    }
    // No place hits a brick. The time of landing, fixed during the fall, varies the angle, so that no path
    // repeats for ever.
    const int32_t reach = game.paddle_w / 2 - PaddleSpeed(game);
    const auto tick = static_cast<int32_t>(landing.last_step_ms / kTickMs % 65'536);
    const int32_t aim = landing.ball_x - game.paddle_w / 2 + tick * 37 % (2 * reach) - reach;
    const int32_t away = std::clamp(aim, 0, limit) - game.paddle_x;
    if (away > -PaddleSpeed(game) && away < PaddleSpeed(game)) return {};
    return MoveTo(game, game.paddle_x + away);
}

// Plays to lose: serves, then keeps out of the ball's way.
inline AutopilotKeys AutopilotLose(const GameState& game) {
    using namespace autopilot;
    if (!game.ball_live) return {.serve = true};
    if (!IsNearPaddle(game)) return {};
    const bool lands_on_the_right = FallToPaddle(game).ball_x >= kFieldCentreX;
    return {.left = lands_on_the_right, .right = !lands_on_the_right};
}

}  // namespace brickfall
