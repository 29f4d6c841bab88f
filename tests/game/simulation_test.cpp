#include "game/simulation.h"

#include <gtest/gtest.h>

// What the comparison with a model does not reach: how a game and a flight begin.

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
    // From the middle the side alternates. Up to 47 units off, of 48, count as the middle.
    const Row rows[] = {{1280, 3, 1, 999, 4, -8},
                        {1280, 2, 1, 1'000, -4, -9},
                        {1280, 3, 2, 0, -4, -9},
                        {1327, 3, 1, 0, 4, -8},
                        {1233, 3, 1, 0, 4, -8},
                        {1328, 3, 1, 0, 1, -8},
                        {1185, 3, 1, 0, -1, -8},
                        {1184, 3, 1, 0, -2, -8},
                        {0, 3, 1, 0, -8, -8},
                        {2560, 3, 11, 0, 18, -18},
                        {2560, 3, 40, 1'000'000, 18, -18},
                        {0, 3, -5, 0, -6, -6}};
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

}  // namespace
}  // namespace brickfall
