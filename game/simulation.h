// simulation.h - the game itself: bricks, a paddle and a ball, in whole numbers, one fixed tick a step.
// No chance, no floating point, no clock but the one handed in, no allocation: the same start and the same
// inputs on the same ticks give the same state on every machine. It owns no state and takes no lock.
//
// Lengths are field units; a brick cell is 256 units square. The origin is the top left corner of the field,
// x grows to the right and y downwards.
#pragma once

#include <cstdint>
#include <type_traits>

namespace brickfall {

inline constexpr int32_t kCellUnits = 256;
inline constexpr int32_t kBrickCols = 13;
inline constexpr int32_t kBrickRows = 8;
inline constexpr int32_t kFieldW = kBrickCols * kCellUnits;
inline constexpr int32_t kFieldH = 18 * kCellUnits;
inline constexpr int32_t kBrickTop = kCellUnits;  // one empty row of cells lies above the wall
inline constexpr int32_t kBrickBottom = kBrickTop + kBrickRows * kCellUnits;
inline constexpr int32_t kBallHalf = 36;  // half the side of the ball's collision box
inline constexpr int32_t kBallMinX = kBallHalf;
inline constexpr int32_t kBallMaxX = kFieldW - kBallHalf;
inline constexpr int32_t kBallMinY = kBallHalf;
inline constexpr int32_t kPaddleTop = 4312;
inline constexpr int32_t kPaddleBottom = 4352;
inline constexpr int32_t kPaddleStartX = 1280;
inline constexpr int32_t kPaddleW = 3 * kCellUnits;
inline constexpr int32_t kFieldCentreX = kFieldW / 2;
inline constexpr int32_t kRestY = 4268;    // the ball's centre while it sits on the paddle
inline constexpr int32_t kBounceY = 4274;  // where a bounce off the paddle puts the centre
inline constexpr int32_t kLossY = kFieldH;

inline constexpr uint64_t kTickMs = 16;
inline constexpr int32_t kPaddleSpeedLow = 120;   // units a step, up to level 8
inline constexpr int32_t kPaddleSpeedHigh = 168;  // from level 9 on
inline constexpr int32_t kBallSpeedMin = 6;
inline constexpr int32_t kBallSpeedMax = 18;
inline constexpr int32_t kSpinFloor = 3;   // horizontal speed where a paddle bounce would give 0
inline constexpr int32_t kServeFloor = 4;  // the same for a serve
inline constexpr int32_t kServeDivisor = 48;

inline constexpr int32_t kStartLives = 3;
inline constexpr int32_t kDefaultCellPixels = 32;

inline constexpr int32_t kRowPoints[kBrickRows] = {200, 100, 50, 25, 10, 5, 2, 1};  // top row first

struct GameState {
    int64_t score = 0;
    uint64_t last_step_ms = 0;                    // clock of the last step that ran
    uint8_t bricks[kBrickRows][kBrickCols] = {};  // hits left in each cell; 0 is an empty cell
    int32_t level = 0;                            // from 1
    int32_t lives = 0;
    int32_t bricks_left = 0;  // cells that are not 0
    int32_t paddle_x = 0;     // left edge
    int32_t paddle_w = 0;
    int32_t ball_x = 0;  // centre
    int32_t ball_y = 0;
    int32_t ball_vx = 0;  // units a step
    int32_t ball_vy = 0;
    int32_t cell_w = 0;  // pixels a cell, carried for the renderer; no step reads them
    int32_t cell_h = 0;
    bool ball_live = false;  // in flight, else it sits on the paddle
    bool left_held = false;
    bool right_held = false;
    bool paused = false;
    bool game_over = false;
    uint8_t unused[7] = {};  // fills the layout, so that two equal states are equal byte by byte

    bool operator==(const GameState&) const = default;
};

static_assert(std::is_trivially_copyable_v<GameState>);
static_assert(std::has_unique_object_representations_v<GameState>, "no indeterminate padding");

// The state in which every run starts. A cell size that is not positive becomes kDefaultCellPixels.
GameState NewGame(int32_t cell_w, int32_t cell_h);

void LayoutWall(GameState& state);  // the wall of state.level; touches `bricks` and `bricks_left` only

// One step. `now_ms` is the simulated clock, which the caller has already advanced. Does nothing while the
// game is paused or over, or when less than a tick has passed since the last step.
void StepGame(GameState& state, uint64_t now_ms);

// StepGame's brick test: at most one brick takes a hit. The old position is the ball's centre before the
// move.
void CollideBricks(GameState& state, int32_t old_x, int32_t old_y);

void ServeBall(GameState& state);  // nothing when the ball is in flight
int32_t BallSpeed(const GameState& state);
void ResetBallOnPaddle(GameState& state);

}  // namespace brickfall
