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
GameState Replay(const InputTape& tape) {
    GameState game = NewGame(tape.cell_w, tape.cell_h);
    uint64_t tick = 0;
    for (const InputEvent& event : tape.events) {
        while (tick < event.tick_ms) StepGame(game, tick += kTickMs);
        ApplyEvent(game, event.code);
    }
    return game;
}

void CheckTape(const RunControl& run) {
    ASSERT_FALSE(run.tape.events.empty());
    EXPECT_EQ(run.tape.events.back().code, kInputEnd);
    EXPECT_EQ(run.tape.events.back().tick_ms, run.sim_clock_ms);
    EXPECT_TRUE(run.game.game_over);
    EXPECT_TRUE(Replay(run.tape) == run.game) << "score " << run.game.score;
}

TEST(Replay, BringsBackTheStateOfThousandsOfRuns) {
    RunFixture play;
    for (uint64_t seed = 1; seed <= 3'000; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937_64 random(seed);
        PlayRandomRun(play, random, 0, random() % 60'000, [] {});
        CheckTape(play.run);
        if (HasFailure()) return;
    }
}

TEST(Replay, BringsBackRunsThatClearWalls) {
    RunFixture play;
    for (const int32_t level : {2, 3, 5, 6, 9, 17}) {
        SCOPED_TRACE("level " + std::to_string(level));
        std::mt19937_64 random(static_cast<uint64_t>(level));
        PlayRandomRun(play, random, level, 0, [] {});
        EXPECT_GE(play.run.game.level, level);
        CheckTape(play.run);
    }
}

}  // namespace
}  // namespace brickfall
