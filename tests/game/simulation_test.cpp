#include "game/simulation.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "tools/autopilot.h"

// What the comparison with a model does not reach: how a game and a flight begin, and what a step costs.
//
// Every allocation of this program is counted, so that a test can show that a step makes none.
static thread_local int64_t allocations = 0;

static void* Allocate(std::size_t size) noexcept {
    ++allocations;
    return std::malloc(size == 0 ? 1 : size);
}

[[gnu::noinline]] static void Release(void* place) noexcept { std::free(place); }

void* operator new(std::size_t size) {
    if (void* place = Allocate(size)) return place;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* place) noexcept { Release(place); }
void operator delete[](void* place) noexcept { Release(place); }
void operator delete(void* place, std::size_t) noexcept { Release(place); }
void operator delete[](void* place, std::size_t) noexcept { Release(place); }

namespace brickfall {
namespace {

TEST(Simulation, NewGame) {
    const GameState game = NewGame(0, 48);
    EXPECT_EQ(game.cell_w, 32);
    EXPECT_EQ(game.cell_h, 48);
    EXPECT_EQ(game.level, 1);
    EXPECT_EQ(game.lives, 3);
    EXPECT_EQ(game.paddle_x, 1280);
    EXPECT_EQ(game.ball_x, 1664);
    EXPECT_EQ(game.ball_y, 4268);
    EXPECT_EQ(game.bricks_left, 104);
    EXPECT_EQ(game.last_step_ms, 0u);
}

TEST(Simulation, ServesAtTheSpeedOfLevelAndScore) {
    struct Row {
        int32_t paddle_x, lives, level;
        int64_t score;
        int32_t vx, vy;
    };
    const Row rows[] = {
        {1280, 3, 1, 999, 4, -8},  // from the middle the side alternates
        {1280, 2, 1, 1'000, -4, -9}, {1280, 3, 2, 0, -4, -9},   {1327, 3, 1, 0, 4, -8},  // 47 / 48 is 0
        {1233, 3, 1, 0, 4, -8},                                                          // and so is -47 / 48
        {1328, 3, 1, 0, 1, -8},      {1185, 3, 1, 0, -1, -8},   {1184, 3, 1, 0, -2, -8},
        {0, 3, 1, 0, -8, -8},        {2560, 3, 11, 0, 18, -18}, {2560, 3, 40, 1'000'000, 18, -18},
        {0, 3, -5, 0, -6, -6},
    };
    for (const Row& row : rows) {
        GameState game = NewGame(32, 32);
        game.paddle_x = row.paddle_x;
        game.lives = row.lives;
        game.level = row.level;
        game.score = row.score;
        ServeBall(game);
        EXPECT_TRUE(game.ball_live);
        EXPECT_EQ(game.ball_vx, row.vx) << row.paddle_x;
        EXPECT_EQ(game.ball_vy, row.vy) << row.paddle_x;
        game.ball_vx = game.ball_vy = 5;
        const GameState served = game;
        ServeBall(game);
        EXPECT_TRUE(game == served) << "a ball in flight is not served again";
    }
}

TEST(Simulation, AStepAllocatesNothing) {
    GameState game = NewGame(32, 32);
    const int64_t before = allocations;
    ASSERT_GT(before, 0) << "the test framework's own are counted";
    for (int tick = 0; tick < 100'000 || !game.game_over; ++tick) {  // walls are cleared, then all is lost
        const AutopilotKeys keys = tick < 80'000 ? AutopilotPlay(game) : AutopilotLose(game);
        game.left_held = keys.left;
        game.right_held = keys.right;
        if (keys.serve) ServeBall(game);
        StepGame(game, game.last_step_ms + kTickMs);
    }
    EXPECT_EQ(allocations, before);
    EXPECT_GT(game.level, 2);
}

}  // namespace
}  // namespace brickfall
