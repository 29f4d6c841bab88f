// A tape, replayed from the state in which every run starts, brings back the run's last state.
#include "game/replay.h"

#include <gtest/gtest.h>

#include "tests/game/random_run.h"

namespace brickfall {
namespace {

// Run after run on the same state.
struct Replays : testing::Test {
    void CheckRun(uint64_t seed, int32_t level, uint64_t most_ms) {
        SCOPED_TRACE("seed " + std::to_string(seed) + " level " + std::to_string(level));
        std::mt19937_64 random(seed);
        PlayRandomRun(play, random, level, most_ms, [] {});
        const RunControl& run = play.run;
        ASSERT_FALSE(run.tape.events.empty());
        EXPECT_EQ(run.tape.events.back().code, kInputEnd);
        EXPECT_EQ(run.tape.events.back().tick_ms, run.sim_clock_ms);
        EXPECT_TRUE(run.game.game_over && run.game.level >= level);
        Replay replay(run.tape);
        replay.GoTo(Replay::kToTheEnd);
        EXPECT_EQ(replay.End(), ReplayEnd::kLost) << ReplayEndText(replay);
        EXPECT_TRUE(replay.Game() == run.game) << "score " << run.game.score;
    }

    RunFixture play;
};

TEST_F(Replays, BringBackTheLastStateOfEveryRun) {
    for (uint64_t seed = 1; seed <= 600 && !HasFailure(); ++seed) CheckRun(seed, 0, seed * 7'919 % 60'000);
    for (const int32_t level : {2, 10}) CheckRun(17, level, 0);
}

}  // namespace
}  // namespace brickfall
