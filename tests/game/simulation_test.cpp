// The simulation against a second one that is slow and obvious: it looks at every brick, knows no early way
// out, and counts in wide integers.
#include "game/simulation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace brickfall {
namespace {

using Wide = int64_t;

struct Box {
    Wide left, top, right, bottom;
};

bool MeetInX(const Box& a, const Box& b) { return a.left < b.right && b.left < a.right; }
bool MeetInY(const Box& a, const Box& b) { return a.top < b.bottom && b.top < a.bottom; }
Box BallBox(Wide x, Wide y) { return {x - 36, y - 36, x + 36, y + 36}; }
Box CellBox(int row, int column) {
    return {column * 256, 256 + row * 256, column * 256 + 256, 256 + row * 256 + 256};
}
int32_t Within(Wide low, Wide value, Wide high) {
    return static_cast<int32_t>(std::min(high, std::max(low, value)));
}

void ModelWall(GameState& game) {
    static const int kStrengths[3][8] = {
        {1, 1, 1, 1, 1, 1, 1, 1}, {2, 2, 1, 1, 1, 1, 1, 1}, {3, 3, 2, 2, 1, 1, 1, 1}};
    game.bricks_left = 0;
    for (int row = 0; row < 8; ++row) {
        for (int column = 0; column < 13; ++column) {
            int strength = kStrengths[game.level <= 4 ? 0 : game.level <= 8 ? 1 : 2][row];
            const bool at_the_sides = column <= 1 || column >= 11;
            if (game.level % 3 == 0 && row == 3 && column % 2 == 0) strength = 0;
            if (game.level % 5 == 0 && row >= 6 && !at_the_sides) strength = 0;
            game.bricks[row][column] = static_cast<uint8_t>(strength);
            game.bricks_left += strength > 0;
        }
    }
}

Wide ModelSpeed(const GameState& game) { return Within(6, game.level + 7 + game.score / 1000, 18); }

void ModelCollide(GameState& game, Wide old_x, Wide old_y) {
    static const int kPoints[8] = {200, 100, 50, 25, 10, 5, 2, 1};
    const Box ball = BallBox(game.ball_x, game.ball_y);
    const Box old_ball = BallBox(old_x, old_y);
    for (int cell_number = 0; cell_number < 8 * 13; ++cell_number) {
        const int row = cell_number / 13;
        const int column = cell_number % 13;
        const Box cell = CellBox(row, column);
        if (game.bricks[row][column] == 0 || !MeetInX(ball, cell) || !MeetInY(ball, cell)) continue;

        const bool was_x = MeetInX(old_ball, cell);
        const bool was_y = MeetInY(old_ball, cell);
        bool horizontal = was_y && !was_x;
        if (was_x == was_y) {
            horizontal = std::min(cell.right - game.ball_x, game.ball_x - cell.left) <
                         std::min(cell.bottom - game.ball_y, game.ball_y - cell.top);
        }
        game.bricks[row][column] = static_cast<uint8_t>(game.bricks[row][column] - 1);
        if (game.bricks[row][column] == 0) {
            game.score += kPoints[row];
            game.bricks_left -= 1;
        }
        if (horizontal) {
            game.ball_vx = -game.ball_vx;
            Wide x = game.ball_x >= cell.left + 128 ? cell.left + 292 : cell.left - 36;
            if (x < 36) {
                x = cell.left + 292;
                game.ball_vx = std::max(game.ball_vx, -game.ball_vx);
            } else if (x > 3292) {
                x = cell.left - 36;
                game.ball_vx = std::min(game.ball_vx, -game.ball_vx);
            }
            game.ball_x = static_cast<int32_t>(x);
        } else {
            game.ball_vy = -game.ball_vy;
            game.ball_y = row * 256 + (game.ball_y >= row * 256 + 384 ? 548 : 220);
        }
        return;
    }
}

void ModelOnPaddle(GameState& game) {
    game.ball_live = false;
    game.ball_x = game.paddle_x + 384;
    game.ball_y = 4268;
    game.ball_vx = game.ball_vy = 0;
}

void ModelStep(GameState& game, uint64_t now_ms) {
    if (game.paused || game.game_over) return;
    if (game.last_step_ms != 0 && now_ms - game.last_step_ms < 16) return;
    game.last_step_ms = now_ms;
    const int v = game.level >= 9 ? 168 : 120;
    if (game.left_held) game.paddle_x = Within(0, game.paddle_x - v, 2560);
    if (game.right_held) game.paddle_x = Within(0, game.paddle_x + v, 2560);
    if (!game.ball_live) return ModelOnPaddle(game);

    const Wide old_x = game.ball_x;
    const Wide old_y = game.ball_y;
    const Wide x = old_x + game.ball_vx;
    const Wide y = old_y + game.ball_vy;
    if (x < 36) game.ball_vx = std::max(game.ball_vx, -game.ball_vx);
    if (x > 3292) game.ball_vx = std::min(game.ball_vx, -game.ball_vx);
    if (y < 36) game.ball_vy = std::max(game.ball_vy, -game.ball_vy);
    game.ball_x = Within(36, x, 3292);
    game.ball_y = Within(36, y, 1'000'000);

    ModelCollide(game, old_x, old_y);
    if (game.bricks_left <= 0) {
        game.level += 1;
        ModelWall(game);
        return ModelOnPaddle(game);
    }
    const Box ball = BallBox(game.ball_x, game.ball_y);
    const bool in_band = ball.bottom >= 4312 && ball.top <= 4352;
    const bool above_paddle = ball.right >= game.paddle_x && ball.left <= game.paddle_x + 768;
    if (game.ball_vy > 0 && in_band && above_paddle) {
        const Wide off = game.ball_x - (game.paddle_x + 384);
        const Wide s = ModelSpeed(game);
        const Wide size = (off < 0 ? -off : off) * s / 384;
        game.ball_vx = static_cast<int32_t>((off < 0 ? -1 : 1) * (size == 0 ? 3 : std::min(size, s)));
        game.ball_vy = static_cast<int32_t>(-s);
        game.ball_y = 4274;
    }
    if (game.ball_y > 4644) {
        game.lives = std::max(game.lives - 1, 0);
        game.ball_live = false;
        if (game.lives == 0) {
            game.game_over = true;
        } else {
            ModelOnPaddle(game);
        }
    }
}

struct Chance {
    int32_t From(int32_t low, int32_t high) {
        return low + static_cast<int32_t>(random() % static_cast<uint64_t>(high - low + 1));
    }
    bool OneIn(int32_t n) { return From(1, n) == 1; }

    std::mt19937_64 random;
};

// A ball somewhere, often within a few units of where a rule changes.
GameState AnyState(Chance& chance) {
    GameState game = NewGame(32, 32);
    game.level = chance.From(1, 20);
    game.lives = chance.From(1, 3);
    game.score = chance.From(0, 12'000);
    game.paddle_x = chance.From(0, 2560);
    game.last_step_ms = static_cast<uint64_t>(chance.From(0, 100)) * 16;
    game.left_held = chance.OneIn(3);
    game.right_held = chance.OneIn(3);
    game.paused = chance.OneIn(50);
    game.game_over = chance.OneIn(50);
    game.ball_live = !chance.OneIn(20);
    const int32_t density = chance.From(1, 4);
    game.bricks_left = 0;
    for (auto& row : game.bricks) {
        for (uint8_t& brick : row) {
            brick = static_cast<uint8_t>(chance.OneIn(density) ? chance.From(1, 3) : 0);
            game.bricks_left += brick != 0;
        }
    }
    if (chance.OneIn(10)) {  // the last brick
        for (auto& row : game.bricks) std::fill(std::begin(row), std::end(row), uint8_t{0});
        game.bricks[chance.From(0, 7)][chance.From(0, 12)] = 1;
        game.bricks_left = 1;
    }
    game.ball_vx = chance.From(-18, 18);
    game.ball_vy = chance.From(-18, 18);
    const int32_t side = chance.OneIn(2) ? -36 : 36;
    game.ball_x =
        chance.OneIn(2) ? chance.From(36, 3292) : chance.From(0, 13) * 256 + side + chance.From(-18, 18);
    game.ball_y =
        chance.OneIn(2) ? chance.From(36, 2400) : chance.From(1, 9) * 256 + side + chance.From(-18, 18);
    if (chance.OneIn(4)) game.ball_y = chance.From(4230, 4660);
    if (chance.OneIn(8)) game.ball_x = game.paddle_x + 384 * chance.From(0, 2) + chance.From(-50, 50);
    game.ball_x = Within(36, game.ball_x, 3292);
    return game;
}

TEST(SimulationModel, AgreesOnSteps) {
    Chance chance{std::mt19937_64(20'260'729)};
    for (int round = 0; round < 60'000; ++round) {
        GameState game = AnyState(chance);
        GameState model = game;
        for (int step = 0; step < 4; ++step) {
            const uint64_t now = game.last_step_ms + static_cast<uint64_t>(chance.OneIn(20) ? 15 : 16);
            StepGame(game, now);
            ModelStep(model, now);
            ASSERT_TRUE(game == model) << "round " << round << " step " << step;
        }
    }
}

// What the model does not reach: how a game and a flight begin.
TEST(Simulation, NewGame) {
    const GameState game = NewGame(0, 48);
    EXPECT_TRUE(game.cell_w == 32 && game.cell_h == 48);
    EXPECT_TRUE(game.level == 1 && game.lives == 3 && game.score == 0 && game.last_step_ms == 0);
    EXPECT_TRUE(game.paddle_x == 1280 && game.ball_x == 1664 && game.ball_y == 4268);
    EXPECT_EQ(game.bricks_left, 104);
}

TEST(Simulation, ServesAtTheSpeedOfLevelAndScore) {
    const struct {
        int32_t paddle_x, lives, level;
        int64_t score;
        int32_t vx, vy;
    } rows[] = {
        // From the middle the side alternates. Up to 47 units off, of 48, count as the middle.
        {1280, 3, 1, 999, 4, -8},
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
        {0, 3, -5, 0, -6, -6},
    };
    for (const auto& row : rows) {
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
