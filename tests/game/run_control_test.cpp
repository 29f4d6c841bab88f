#include "game/run_control.h"

#include <gtest/gtest.h>

#include "tests/game/random_run.h"

namespace brickfall {
namespace {

// "tick:code" of each event.
Lines Stamps(const RunControl& run) {
    Lines stamps;
    for (const InputEvent& event : run.tape.events) {
        stamps.push_back(std::to_string(event.tick_ms) + ":" + std::to_string(event.code));
    }
    return stamps;
}

struct Started : RunFixture {
    Started() {
        StartRun(run, driver);
        calls.clear();
    }
};

TEST(RunControl, StartsAFreshRunOverAnOldOne) {
    RunFixture play;
    play.cell = {-1, 40};
    play.run.enter_txid = std::string(64, 'a');
    play.run.record_txid = "old";
    play.run.record_pending = true;
    play.run.mode = kModeRecorded;
    play.run.final_score = 7;
    play.run.sim_clock_ms = 32;
    play.run.pause_tick = 9;
    play.run.key_left_down = play.run.key_right_down = true;
    play.run.tape.events.push_back({16, 7});
    StartRun(play.run, play.driver);

    EXPECT_EQ(play.TakeCalls(),
              (Lines{"layout", "layout", "heartbeat", "disable 1006", "disable 1005", "focus",
                     "status Left / Right move the paddle. Space serve. P pause."}));
    EXPECT_EQ(play.run.mode, kModePlaying);
    EXPECT_TRUE(play.run.game == NewGame(32, 40));
    EXPECT_EQ(play.run.enter_txid + play.run.record_txid, std::string(64, 'a'));
    EXPECT_FALSE(play.run.record_pending || play.run.key_left_down || play.run.key_right_down);
    EXPECT_EQ(play.run.final_score, 0);
    EXPECT_EQ(play.run.sim_clock_ms + play.run.pause_tick + play.run.tape.events.size(), 0u);
    EXPECT_EQ(play.run.run_start_tick, TickMs());
    EXPECT_EQ(play.run.tape.start_lives, 3);
}

TEST(RunControl, WritesDownOneEventForEachEdgeHoweverItWasNoticed) {
    Started play;
    play.MoveKey(GameKey::kLeft, true);  // before the first step
    OnKeyDown(play.run, play.driver, GameKey::kLeft, true);
    play.Pass(16);
    play.MoveKey(GameKey::kRight, true, /*with_message=*/false);
    play.MoveKey(GameKey::kLeft, false, /*with_message=*/false);
    play.Pass(20);  // the poll sees both, left first
    OnKeyUp(play.run, play.driver, GameKey::kLeft);
    OnKeyDown(play.run, play.driver, GameKey::kSpace, /*is_repeat=*/true);
    play.clock.AdvanceMs(12);
    play.Tap(GameKey::kSpace);
    play.Tap(GameKey::kSpace);  // in flight: nothing to write down
    play.Tap(GameKey::kOther);
    EXPECT_EQ(Stamps(play.run), (Lines{"0:1", "32:9", "32:2", "48:7"}));
    EXPECT_TRUE(play.run.game.ball_live && play.run.game.right_held && !play.run.game.left_held);
}

TEST(RunControl, APauseFreezesTheRunAndThePollAtItsEndCatchesTheKeys) {
    Started play;
    play.Pass(16);
    play.MoveKey(GameKey::kLeft, true);
    play.clock.AdvanceMs(15);  // stays owed
    int repaints = play.well_repaints;
    play.Tap(GameKey::kP);
    EXPECT_EQ(play.well_repaints, ++repaints) << "to show the word";
    const GameState frozen = play.run.game;
    play.Pass(5'000);
    play.MoveKey(GameKey::kLeft, false);
    play.MoveKey(GameKey::kRight, true);
    play.MoveKey(GameKey::kRight, false);
    play.Tap(GameKey::kSpace);
    PauseForWindow(play.run, play.driver);
    EXPECT_TRUE(play.run.game == frozen);
    EXPECT_EQ(play.well_repaints, repaints);
    EXPECT_EQ(Stamps(play.run), (Lines{"16:1"}));

    OnKeyDown(play.run, play.driver, GameKey::kP, /*is_repeat=*/true);
    EXPECT_EQ(play.well_repaints, ++repaints);
    EXPECT_EQ(play.TakeCalls(), (Lines{"status Paused.", "status Back."}));
    EXPECT_EQ(Stamps(play.run), (Lines{"16:1", "16:9"}));
    EXPECT_FALSE(play.run.game.left_held);
    play.Pass(0);
    EXPECT_EQ(play.run.sim_clock_ms, 16u);
    play.Pass(1);
    EXPECT_EQ(play.run.sim_clock_ms, 32u);

    repaints = play.well_repaints;
    PauseForWindow(play.run, play.driver);
    EXPECT_EQ(play.well_repaints, repaints + 1);
    EXPECT_EQ(play.TakeCalls(), Lines{"status Paused."});
    play.Pass(1'000);
    EXPECT_TRUE(play.run.game.paused);  // until P, whatever happens to the window
    EXPECT_EQ(play.run.sim_clock_ms, 32u);
}

TEST(RunControl, ALossDuringAStallEndsTheRunAtItsOwnTick) {
    Started play;
    play.run.game.score = 4'321;
    play.run.game.lives = 1;
    play.MoveKey(GameKey::kLeft, true);
    play.Pass(16 * 30);
    play.Tap(GameKey::kSpace);  // from the left wall; the paddle then leaves to the right
    play.MoveKey(GameKey::kLeft, false);
    play.MoveKey(GameKey::kRight, true);
    play.Pass(600'000);

    ASSERT_EQ(play.run.mode, kModeGameOver);
    EXPECT_EQ(play.TakeCalls(), (Lines{"local score '' " + std::to_string(play.run.game.score), "enable 1006",
                                       "enable 1005", "effect 72/90 67/90 64/90 57/160",
                                       "status Game over. Record this score on-chain (1 sat)."}));
    EXPECT_TRUE(play.run.record_pending);
    EXPECT_EQ(play.run.final_score, play.run.game.score);
    EXPECT_EQ(play.run.tape.events.back().code, kInputEnd);
    EXPECT_EQ(play.run.tape.events.back().tick_ms, play.run.sim_clock_ms);
    EXPECT_EQ(play.run.game.last_step_ms, play.run.sim_clock_ms);
    EXPECT_LT(play.run.sim_clock_ms, 60'000u);

    // Nothing reaches the finished run; the timer keeps it blinking until it is recorded.
    const GameState ended = play.run.game;
    const std::size_t events = play.run.tape.events.size();
    const int repaints = play.well_repaints;
    for (const RunMode mode : {kModeGameOver, kModeRecorded, kModeAttract}) {
        play.run.mode = mode;
        play.MoveKey(GameKey::kRight, !play.right_down);
        play.Tap(GameKey::kSpace);
        play.Tap(GameKey::kP);
        PauseForWindow(play.run, play.driver);
        TogglePause(play.run, play.driver);
        FinishRun(play.run, play.driver);
        play.Pass(16);
        EXPECT_EQ(play.run.mode, mode);
        EXPECT_EQ(play.well_repaints, repaints + 1);
        EXPECT_EQ(play.button_repaints, 1);
        EXPECT_TRUE(play.run.game == ended);
        EXPECT_EQ(play.run.tape.events.size(), events);
        EXPECT_EQ(play.calls, Lines());
    }
}

TEST(RunControl, AFullTapeLosesEventsButNotInputs) {
    Started play;
    play.run.tape.events.assign(kTapeMaxEvents - 1, {0, kInputLeftUp});
    play.MoveKey(GameKey::kLeft, true);
    play.MoveKey(GameKey::kLeft, false);
    play.MoveKey(GameKey::kRight, true);
    EXPECT_TRUE(play.run.game.right_held && !play.run.game.left_held);
    play.run.game.game_over = true;
    FinishRun(play.run, play.driver);
    EXPECT_EQ(play.run.mode, kModeGameOver);
    EXPECT_EQ(play.run.tape.events.size(), kTapeMaxEvents);
    EXPECT_EQ(play.run.tape.events.back().code, kInputLeftDown);
    const std::string hex = TapeToHex(play.run.tape);
    EXPECT_EQ(hex.size(), 2'000'020u);
    EXPECT_EQ(hex.substr(12, 8), "400d0300");  // 200,000
}

}  // namespace
}  // namespace brickfall
