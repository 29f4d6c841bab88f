#include "game/simulation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <string>

#include "tools/autopilot.h"

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

GameState AtLevel(int32_t level) {
    GameState game = NewGame(32, 32);
    game.level = level;
    LayoutWall(game);
    return game;
}

// A game whose next step moves the ball by (vx, vy) to (x, y). Only the far brick 0,0 stands.
GameState Flying(int32_t x, int32_t y, int32_t vx, int32_t vy) {
    GameState game = NewGame(32, 32);
    for (auto& row : game.bricks) std::fill(std::begin(row), std::end(row), uint8_t{0});
    game.bricks[0][0] = 1;
    game.bricks_left = 1;
    game.ball_live = true;
    game.ball_x = x - vx;
    game.ball_y = y - vy;
    game.ball_vx = vx;
    game.ball_vy = vy;
    return game;
}

void Step(GameState& game) { StepGame(game, game.last_step_ms + kTickMs); }

std::string Picture(const GameState& game) {
    std::string picture;
    for (const auto& row : game.bricks) {
        for (const uint8_t brick : row) picture += static_cast<char>('0' + brick);
        picture += '\n';
    }
    return picture;
}

TEST(Simulation, Walls) {
    const std::pair<int32_t, int32_t> bricks_at_level[] = {{1, 104}, {2, 104}, {3, 97},
                                                           {5, 86},  {9, 97},  {15, 79}};
    for (const auto& [level, bricks] : bricks_at_level)
        EXPECT_EQ(AtLevel(level).bricks_left, bricks) << level;
    EXPECT_EQ(Picture(AtLevel(4)).substr(0, 42), "1111111111111\n1111111111111\n1111111111111\n");
    EXPECT_EQ(Picture(AtLevel(8)).substr(0, 42), "2222222222222\n2222222222222\n1111111111111\n");
    EXPECT_EQ(Picture(AtLevel(15)),
              "3333333333333\n3333333333333\n2222222222222\n0202020202020\n"
              "1111111111111\n1111111111111\n1100000000011\n1100000000011\n");
}

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

TEST(Simulation, SpeedLaw) {
    struct Row {
        int32_t level;
        int64_t score;
        int32_t speed;
    };
    for (const Row& row : {Row{1, 0, 8}, Row{1, 999, 8}, Row{1, 1'000, 9}, Row{1, 10'000, 18},
                           Row{1, 11'000, 18}, Row{11, 0, 18}, Row{40, 1'000'000, 18}, Row{-5, 0, 6}}) {
        GameState game;
        game.level = row.level;
        game.score = row.score;
        EXPECT_EQ(BallSpeed(game), row.speed) << row.level << " " << row.score;
    }
}

TEST(Simulation, Serves) {
    struct Row {
        int32_t paddle_x, lives, level, vx, vy;
    };
    const Row rows[] = {
        {1280, 3, 1, 4, -8},  // from the middle the side alternates
        {1280, 2, 1, -4, -8}, {1280, 3, 2, -4, -9},   {1327, 3, 1, 4, -8},  // 47 / 48 is 0
        {1233, 3, 1, 4, -8},                                                // and so is -47 / 48
        {1328, 3, 1, 1, -8},  {1185, 3, 1, -1, -8},   {1184, 3, 1, -2, -8},
        {0, 3, 1, -8, -8},    {2560, 3, 12, 18, -18},
    };
    for (const Row& row : rows) {
        GameState game = NewGame(32, 32);
        game.paddle_x = row.paddle_x;
        game.lives = row.lives;
        game.level = row.level;
        ServeBall(game);
        EXPECT_TRUE(game.ball_live);
        EXPECT_EQ(game.ball_vx, row.vx) << row.paddle_x;
        EXPECT_EQ(game.ball_vy, row.vy) << row.paddle_x;
        const GameState served = game;
        ServeBall(game);
        EXPECT_TRUE(game == served) << "a ball in flight is not served again";
    }
}

TEST(Simulation, PaddleMoves) {
    struct Row {
        int32_t level, from;
        bool left, right;
        int32_t to;
    };
    const Row rows[] = {
        {1, 1280, true, false, 1160}, {8, 1280, false, true, 1400}, {9, 1280, false, true, 1448},
        {1, 100, true, false, 0},     {1, 2500, false, true, 2560}, {1, 1280, true, true, 1280},
        {1, 0, true, true, 120},      {9, 0, true, true, 168},      {1, 2560, true, true, 2560},
    };
    for (const Row& row : rows) {
        GameState game = AtLevel(row.level);
        game.paddle_x = row.from;
        game.left_held = row.left;
        game.right_held = row.right;
        Step(game);
        EXPECT_EQ(game.paddle_x, row.to) << row.level << " from " << row.from;
        EXPECT_EQ(game.ball_x, row.to + 384) << "the ball rides on it";
    }
}

TEST(Simulation, StepsOnlyWhenItIsDue) {
    GameState game = NewGame(32, 32);
    StepGame(game, 5);  // the first step takes any clock
    EXPECT_EQ(game.last_step_ms, 5u);
    StepGame(game, 20);
    EXPECT_EQ(game.last_step_ms, 5u);
    StepGame(game, 21);
    EXPECT_EQ(game.last_step_ms, 21u);
    for (bool GameState::*flag : {&GameState::paused, &GameState::game_over}) {
        GameState still = game;
        still.*flag = true;
        const GameState before = still;
        Step(still);
        EXPECT_TRUE(still == before);
    }
}

TEST(Simulation, PaddleBounces) {
    struct Row {
        int32_t x, y, vy;
        bool bounces;
        int32_t vx;  // after a bounce
        const char* why;
    };
    const Row rows[] = {
        {1664, 4276, 8, true, 3, "exact centre"},
        {1663, 4276, 8, true, -3, "just left of it the product divides to 0"},
        {1616, 4276, 8, true, -1, "one forty-eighth"},
        {1664 + 384, 4276, 8, true, 8, "the paddle's edge"},
        {1280 - 36, 4276, 8, true, -8, "touching its side is enough; clamped"},
        {1280 - 37, 4276, 8, false, 0, "beside it"},
        {2048 + 36, 4276, 8, true, 8, "the right side"},
        {2048 + 37, 4276, 8, false, 0, "beside it"},
        {1664, 4275, 8, false, 0, "above the band"},
        {1664, 4388, 8, true, 3, "as deep as it may dip"},
        {1664, 4389, 8, false, 0, "below the band"},
        {1664, 4300, -8, false, 0, "a rising ball passes"},
    };
    for (const Row& row : rows) {
        GameState game = Flying(row.x, row.y, 0, row.vy);
        Step(game);
        EXPECT_EQ(game.ball_y, row.bounces ? 4274 : row.y) << row.why;
        EXPECT_EQ(game.ball_vy, row.bounces ? -8 : row.vy) << row.why;
        EXPECT_EQ(game.ball_vx, row.vx) << row.why;
    }
}

TEST(Simulation, WallsOfTheField) {
    struct Row {
        int32_t x, y, vx, vy, end_x, end_y, end_vx, end_vy;
    };
    const Row rows[] = {
        {36, 2500, -4, 8, 36, 2500, -4, 8},   {35, 2500, -4, 8, 36, 2500, 4, 8},
        {3292, 2500, 4, 8, 3292, 2500, 4, 8}, {3293, 2500, 4, 8, 3292, 2500, -4, 8},
        {1000, 36, 4, -8, 1000, 36, 4, -8},   {3300, 30, 4, -8, 3292, 36, -4, 8},
    };
    for (const Row& row : rows) {
        GameState game = Flying(row.x, row.y, row.vx, row.vy);
        Step(game);
        EXPECT_EQ(game.ball_x, row.end_x) << row.x;
        EXPECT_EQ(game.ball_y, row.end_y) << row.y;
        EXPECT_EQ(game.ball_vx, row.end_vx) << row.x;
        EXPECT_EQ(game.ball_vy, row.end_vy) << row.y;
    }
}

TEST(Simulation, BrickHits) {
    struct Row {
        int32_t x, y, old_x, old_y, vx, vy;  // where CollideBricks finds the ball
        int32_t hit_row, hit_column;         // -1 for none
        int32_t end_x, end_y, end_vx, end_vy;
        const char* why;
    };
    // Every brick stands in row 2 (768 to 1024) and row 3 (1024 to 1280).
    const Row rows[] = {
        {640, 1310, 636, 1318, 4, -8, 3, 2, 640, 1316, 4, 8, "from below, pushed down"},
        {640, 1316, 636, 1324, 4, -8, -1, -1, 640, 1316, 4, -8, "touching is no hit"},
        {640, 740, 636, 732, 4, 8, 2, 2, 640, 732, 4, -8, "from above, pushed up"},
        {768, 1310, 768, 1318, 0, -8, 3, 2, 768, 1316, 0, 8, "two below it: the lower column takes it"},
        {1300, 1024, 1290, 1016, 10, 8, 2, 4, 1316, 1024, -10, 8,
         "two rows: the upper takes it; tie of neither"},
        {30, 900, 40, 900, -10, 0, 2, 0, 292, 900, 10, 0,
         "out of the left edge column, not through the wall"},
        {3300, 900, 3290, 900, 10, 0, 2, 12, 3036, 900, -10, 0, "and of the right one"},
        {640, 900, 400, 900, 10, 0, 2, 2, 804, 900, -10, 0,
         "from the side; the centre counts as the right half"},
        {640, 1279, 640, 1279, 3, 5, 3, 2, 640, 1316, 3, -5, "inside before and after: the nearer side"},
        {768 - 128, 1024 + 128, 640, 1152, 3, 5, 3, 2, 640, 1316, 3, -5,
         "a tie is vertical, the centre pushes down"},
    };
    for (const Row& row : rows) {
        GameState game = Flying(row.x, row.y, row.vx, row.vy);
        game.ball_x = row.x;
        game.ball_y = row.y;
        for (int column = 0; column < kBrickCols; ++column)
            game.bricks[2][column] = game.bricks[3][column] = 2;
        GameState expected = game;
        if (row.hit_row >= 0) --expected.bricks[row.hit_row][row.hit_column];
        expected.ball_x = row.end_x;
        expected.ball_y = row.end_y;
        expected.ball_vx = row.end_vx;
        expected.ball_vy = row.end_vy;
        CollideBricks(game, row.old_x, row.old_y);
        EXPECT_EQ(Picture(game), Picture(expected)) << row.why;
        EXPECT_TRUE(game == expected) << row.why << ": " << game.ball_x << "," << game.ball_y << " v "
                                      << game.ball_vx << "," << game.ball_vy;
    }
}

TEST(Simulation, AStrongBrickPaysOnceAndTheLastOneEndsTheWall) {
    GameState game = Flying(640, 600, 0, 0);
    game.bricks[0][6] = 3;
    game.bricks_left = 2;
    for (int hit = 1; hit <= 3; ++hit) {
        EXPECT_EQ(game.score, 0);
        game.ball_x = 1664;
        game.ball_y = 552;
        game.ball_vy = -8;
        Step(game);
        EXPECT_EQ(game.bricks[0][6], 3 - hit);
        EXPECT_EQ(game.ball_vy, 8);
        EXPECT_EQ(game.bricks_left, hit == 3 ? 1 : 2);
    }
    EXPECT_EQ(game.score, 200);

    game.paddle_x = 777;
    game.lives = 2;
    game.ball_x = 128;
    game.ball_y = 552;
    game.ball_vy = -8;
    Step(game);
    EXPECT_EQ(game.level, 2);
    EXPECT_EQ(game.bricks_left, 104);
    EXPECT_EQ(game.score, 400);
    EXPECT_EQ(game.lives, 2);
    EXPECT_EQ(game.paddle_x, 777);
    EXPECT_FALSE(game.ball_live);
    EXPECT_EQ(game.ball_x, 777 + 384);
    EXPECT_EQ(game.ball_y, 4268);
    EXPECT_EQ(game.ball_vx + game.ball_vy, 0);
}

TEST(Simulation, LosingBalls) {
    GameState game = Flying(100, 4644, 0, 8);
    Step(game);
    EXPECT_TRUE(game.ball_live);  // its box only touches the line
    EXPECT_EQ(game.lives, 3);
    Step(game);
    EXPECT_EQ(game.lives, 2);
    EXPECT_FALSE(game.ball_live || game.game_over);
    EXPECT_EQ(game.ball_x, 1664);
    EXPECT_EQ(game.ball_y, 4268);
    EXPECT_EQ(game.ball_vy, 0);

    game = Flying(100, 4645, 2, 8);
    game.lives = 1;
    Step(game);
    EXPECT_TRUE(game.game_over);
    EXPECT_EQ(game.lives, 0);
    EXPECT_FALSE(game.ball_live);
    EXPECT_EQ(game.ball_x, 100);
    EXPECT_EQ(game.ball_y, 4645);
    EXPECT_EQ(game.ball_vy, 8);
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
        Step(game);
    }
    EXPECT_EQ(allocations, before);
    EXPECT_GT(game.level, 2);
}

}  // namespace
}  // namespace brickfall
