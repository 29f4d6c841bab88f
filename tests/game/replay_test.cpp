// A tape, replayed from the state in which every run starts, brings back the run's last state.
#include <gtest/gtest.h>

#include "tests/game/random_run.h"

namespace brickfall {
namespace {

void ApplyEvent(GameState& game, uint8_t code) {
    if (code == kInputLeftDown || code == kInputLeftUp) game.left_held = code == kInputLeftDown;
    if (code == kInputRightDown || code == kInputRightUp) game.right_held = code == kInputRightDown;
    if (code == kInputServe) ServeBall(game);
}

// For each tick T: the step of T, then the events stamped T in their order.
GameState StateOf(const InputTape& tape) {
    GameState game = NewGame(tape.cell_w, tape.cell_h);
    uint64_t tick = 0;
    for (const InputEvent& event : tape.events) {
        while (tick < event.tick_ms) StepGame(game, tick += kTickMs);
        ApplyEvent(game, event.code);
    }
    return game;
}

// Run after run on the same state.
struct Replay : testing::Test {
    void CheckRun(uint64_t seed, int32_t level, uint64_t most_ms) {
        SCOPED_TRACE("seed " + std::to_string(seed) + " level " + std::to_string(level));
        std::mt19937_64 random(seed);
        PlayRandomRun(play, random, level, most_ms, [] {});
        const RunControl& run = play.run;
        ASSERT_FALSE(run.tape.events.empty());
        EXPECT_EQ(run.tape.events.back().code, kInputEnd);
        EXPECT_EQ(run.tape.events.back().tick_ms, run.sim_clock_ms);
        EXPECT_TRUE(run.game.game_over && run.game.level >= level);
        EXPECT_TRUE(StateOf(run.tape) == run.game) << "score " << run.game.score;
    }

    RunFixture play;
};

TEST_F(Replay, BringsBackTheLastStateOfEveryRun) {
    for (uint64_t seed = 1; seed <= 600 && !HasFailure(); ++seed) CheckRun(seed, 0, seed * 7'919 % 60'000);
    for (const int32_t level : {2, 10}) CheckRun(17, level, 0);
}

}  // namespace
}  // namespace brickfall
