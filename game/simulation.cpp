#include "game/simulation.h"

#include <algorithm>
#include <cstdlib>

namespace brickfall {
namespace {

static_assert(-7 / 2 == -3 && (-7 >> 1) == -4, "division truncates towards zero, a shift rounds down");
static_assert(kCellUnits == 1 << 8);

constexpr int kCellShift = 8;

// One cell of a wall before any hit.
uint8_t StartingStrength(int32_t level, int row, int column) {
    const int32_t quarter = (level - 1) / 4;
    const bool row_3_notched = level % 3 == 0;
    const bool rows_6_7_notched = level % 5 == 0;
    if (row_3_notched && row == 3 && column % 2 == 0) return 0;
    if (rows_6_7_notched && row >= 6 && column >= 2 && column <= 10) return 0;
    if (row <= 1) return static_cast<uint8_t>(std::min(quarter + 1, 3));
    if (row <= 3) return quarter >= 2 ? 2 : 1;
    return 1;
}

int32_t PaddleSpeed(const GameState& state) { return state.level <= 8 ? kPaddleSpeedLow : kPaddleSpeedHigh; }

void MovePaddle(GameState& state, int32_t distance) {
    const int32_t limit = kFieldW - state.paddle_w;
    state.paddle_x += distance;
    if (state.paddle_x < 0) state.paddle_x = 0;
    if (state.paddle_x > limit) state.paddle_x = limit;
}

// For a ball that is not above the paddle.
bool TouchesPaddle(const GameState& state) {
    return state.ball_vy > 0 && state.ball_y - kBallHalf <= kPaddleBottom &&
           state.ball_x + kBallHalf >= state.paddle_x &&
           state.ball_x - kBallHalf <= state.paddle_x + state.paddle_w;
}

void BounceOffPaddle(GameState& state) {
    const int32_t half = state.paddle_w / 2;
    const int32_t offset = state.ball_x - half - state.paddle_x;
    const int32_t speed = BallSpeed(state);
    state.ball_vx = std::clamp(offset * speed / std::max(half, 1), -speed, speed);
    if (state.ball_vx == 0) state.ball_vx = offset < 0 ? -kSpinFloor : kSpinFloor;
    state.ball_vy = -speed;
    state.ball_y = kBounceY;
}

void LoseBall(GameState& state) {
    if (state.lives > 0) --state.lives;
    if (state.lives > 0) {
        ResetBallOnPaddle(state);
    } else {
        state.ball_live = false;
        state.game_over = true;  // the ball stays where it fell
    }
}

// Whether the ball's box at `centre` overlaps a cell's range on one axis. Boxes that only touch do not.
bool Overlaps(int32_t centre, int32_t cell_start) {
    return centre + kBallHalf > cell_start && centre - kBallHalf < cell_start + kCellUnits;
}

bool BouncesSideways(int32_t x, int32_t y, int32_t old_x, int32_t old_y, int32_t left, int32_t top) {
    const bool was_in_x = Overlaps(old_x, left);
    const bool was_in_y = Overlaps(old_y, top);
    if (was_in_x != was_in_y) return was_in_y;  // it came in along the axis on which it was outside
    const int32_t dx = std::min(left + kCellUnits - x, x - left);
    const int32_t dy = std::min(top + kCellUnits - y, y - top);
    return dx < dy;
}

// Puts the ball beside the brick, on the side of the brick's centre on which it is; never through a side
// wall.
void PushOutSideways(GameState& state, int32_t left) {
    const int32_t right_place = left + kCellUnits + kBallHalf;
    const int32_t left_place = left - kBallHalf;
    state.ball_vx = -state.ball_vx;
    state.ball_x = state.ball_x >= left + kCellUnits / 2 ? right_place : left_place;
    if (state.ball_x < kBallMinX) {
        state.ball_x = right_place;
        state.ball_vx = std::abs(state.ball_vx);
    } else if (state.ball_x > kBallMaxX) {
        state.ball_x = left_place;
        state.ball_vx = -std::abs(state.ball_vx);
    }
}

void PushOutUpOrDown(GameState& state, int32_t top) {
    state.ball_vy = -state.ball_vy;
    state.ball_y = state.ball_y >= top + kCellUnits / 2 ? top + kCellUnits + kBallHalf : top - kBallHalf;
}

// Kept out of line, so that the steps that hit nothing stay short.
[[gnu::noinline]] void HitBrick(GameState& state, int32_t row, int32_t column, int32_t old_x, int32_t old_y) {
    const int32_t left = column * kCellUnits;
    const int32_t top = kBrickTop + row * kCellUnits;
    const bool sideways = BouncesSideways(state.ball_x, state.ball_y, old_x, old_y, left, top);
    if (--state.bricks[row][column] == 0) {
        state.score += kRowPoints[row];
        --state.bricks_left;
    }
    if (sideways) {
        PushOutSideways(state, left);
    } else {
        PushOutUpOrDown(state, top);
    }
}

// For a ball at the height of the wall.
void HitFirstBrick(GameState& state, int32_t old_x, int32_t old_y) {
    const int32_t x = state.ball_x;
    const int32_t y = state.ball_y;
    // A shift rounds a negative number down where division would give 0; both end at 0 once clamped.
    const int32_t first_column = std::clamp((x - kBallHalf) >> kCellShift, 0, kBrickCols - 1);
    const int32_t last_column = std::clamp((x + kBallHalf - 1) >> kCellShift, 0, kBrickCols - 1);
    const int32_t first_row = std::clamp((y - kBallHalf - kBrickTop) >> kCellShift, 0, kBrickRows - 1);
    const int32_t last_row = std::clamp((y + kBallHalf - kBrickTop - 1) >> kCellShift, 0, kBrickRows - 1);
    // The ball is smaller than a cell, so these four are all there are. Most of the time they are empty.
    const uint8_t* upper = state.bricks[first_row];
    const uint8_t* lower = state.bricks[last_row];
    if ((upper[first_column] | upper[last_column] | lower[first_column] | lower[last_column]) == 0) return;
    for (int32_t row = first_row; row <= last_row; ++row) {
        for (int32_t column = first_column; column <= last_column; ++column) {
            if (state.bricks[row][column] == 0) continue;
            if (!Overlaps(x, column * kCellUnits) || !Overlaps(y, kBrickTop + row * kCellUnits)) continue;
            HitBrick(state, row, column, old_x, old_y);
            return;
        }
    }
}

}  // namespace

GameState NewGame(int32_t cell_w, int32_t cell_h) {
    GameState state;
    state.level = 1;
    state.lives = kStartLives;
    state.paddle_w = kPaddleW;
    state.paddle_x = kPaddleStartX;
    state.cell_w = cell_w > 0 ? cell_w : kDefaultCellPixels;
    state.cell_h = cell_h > 0 ? cell_h : kDefaultCellPixels;
    LayoutWall(state);
    ResetBallOnPaddle(state);
    return state;
}

void LayoutWall(GameState& state) {
    state.bricks_left = 0;
    for (int row = 0; row < kBrickRows; ++row) {
        for (int column = 0; column < kBrickCols; ++column) {
            const uint8_t strength = StartingStrength(state.level, row, column);
            state.bricks[row][column] = strength;
            if (strength != 0) ++state.bricks_left;
        }
    }
}

int32_t BallSpeed(const GameState& state) {
    // Unsigned, so that a sum beyond 32 bits wraps instead of being undefined.
    const uint32_t sum = static_cast<uint32_t>(state.level) + 7u + static_cast<uint32_t>(state.score / 1000);
    return std::clamp(static_cast<int32_t>(sum), kBallSpeedMin, kBallSpeedMax);
}

void ResetBallOnPaddle(GameState& state) {
    state.ball_live = false;
    state.ball_y = kRestY;
    state.ball_x = state.paddle_x + state.paddle_w / 2;
    state.ball_vx = 0;
    state.ball_vy = 0;
}

void ServeBall(GameState& state) {
    if (state.ball_live) return;
    state.ball_live = true;
    const int32_t speed = BallSpeed(state);
    const int32_t from_centre = state.paddle_x - kFieldCentreX + state.paddle_w / 2;
    state.ball_vx = std::clamp(from_centre / kServeDivisor, -speed, speed);
    if (state.ball_vx == 0) {
        state.ball_vx = (state.lives + state.level) % 2 == 0 ? kServeFloor : -kServeFloor;
    }
    state.ball_vy = -speed;
}

// At the start of a cache line: wherever its neighbours push it, the same instructions take up to a quarter
// longer.
[[gnu::aligned(64)]] void StepGame(GameState& state, uint64_t now_ms) {
    if (state.paused || state.game_over) return;
    if (state.last_step_ms != 0 && now_ms < state.last_step_ms + kTickMs) return;
    state.last_step_ms = now_ms;

    if (state.left_held) MovePaddle(state, -PaddleSpeed(state));
    if (state.right_held) MovePaddle(state, PaddleSpeed(state));
    if (!state.ball_live) {
        ResetBallOnPaddle(state);
        return;
    }

    const int32_t old_x = state.ball_x;
    const int32_t old_y = state.ball_y;
    const int32_t new_x = old_x + state.ball_vx;
    const int32_t new_y = old_y + state.ball_vy;
    state.ball_x = new_x;
    state.ball_y = new_y;
    if (new_x < kBallMinX) {
        state.ball_x = kBallMinX;
        state.ball_vx = std::abs(state.ball_vx);
    } else if (new_x > kBallMaxX) {
        state.ball_x = kBallMaxX;
        state.ball_vx = -std::abs(state.ball_vx);
    }
    if (new_y < kBallMinY) {
        state.ball_y = kBallMinY;
        state.ball_vy = std::abs(state.ball_vy);
    }

    CollideBricks(state, old_x, old_y);
    if (state.bricks_left <= 0) {
        ++state.level;
        LayoutWall(state);
        ResetBallOnPaddle(state);
        return;
    }
    if (state.ball_y + kBallHalf < kPaddleTop) return;  // above the paddle it neither bounces nor is lost
    if (TouchesPaddle(state)) BounceOffPaddle(state);
    if (state.ball_y - kBallHalf > kLossY) LoseBall(state);
}

void CollideBricks(GameState& state, int32_t old_x, int32_t old_y) {
    if (state.ball_y + kBallHalf <= kBrickTop || state.ball_y - kBallHalf >= kBrickBottom) return;
    HitFirstBrick(state, old_x, old_y);
}

}  // namespace brickfall
