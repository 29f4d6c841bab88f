// The viewer's window: the picture against the live one, what keys and buttons do, what a screen reader
// hears.
#include "viewer/viewer_window.h"

#include <gtest/gtest.h>

#include "base/workers.h"
#include "messages/row.h"
#include "tests/cabinet/cabinet_fixture.h"
#include "tests/support/recorded_run.h"
#include "tests/support/temp_folder.h"
#include "viewer/run_list_window.h"

namespace brickfall {
namespace {

WatchedRun RunOf(const InputTape& tape, int64_t score, const char* name = "ada") {
    WatchedRun run;
    run.audit = JudgeRow(RecordedRun(name, tape, score).Make());
    run.tape = tape;
    return run;
}

struct ViewerWindow {
    ViewerWindow() {
        OpenViewer();
        ShowWindow(viewer.main);
        PumpMessages();
    }
    ~ViewerWindow() {
        DestroyWindow(viewer.main);
        PumpMessages();
    }
    void Press(Key key) const {
        PressKey(viewer.main, key);
        ReleaseKey(viewer.main, key);
        PumpMessages();
    }
    void ClickOn(int control) const { Click(viewer.main, control); }
    std::string Spoken() const { return AccessibleDescription(viewer.well); }
    uint64_t Tick() const { return viewer.transport.TickMs() / kTickMs; }
};

// The well of the viewer in the size of the cabinet's.
void MatchWells() {
    const Rect live = ChildRect(shell.well), own = ChildRect(viewer.well);
    const Size client = ClientSize(viewer.main), frame = FrameSize(viewer.main);
    ResizeWindow(viewer.main, {client.w + live.w - own.w + frame.w, client.h + live.h - own.h + frame.h});
    PumpMessages();
}

TEST(ViewerWindow, ShowsTheVeryPixelsOfTheLiveWindow) {
    PretendLargeMonitor();
    CabinetFixture cabinet;
    cabinet.Resize({1'400, 1'100});
    cabinet.BeginRun();
    struct Moment {
        uint64_t tick_ms;
        Image picture;
    };
    std::vector<Moment> moments;
    const auto keep = [&] {
        shell.fee = {};  // the viewer knows of no player's coins
        shell.runs = 2;  // and has no hints for a first run
        InvalidateWindow(shell.well);
        PumpMessages();
        moments.push_back({shell.run.sim_clock_ms, GrabWindow(shell.well)});
    };
    for (int step = 0; shell.run.mode == kModePlaying; ++step) {
        if (!shell.run.game.ball_live) cabinet.TapKey(Key::kSpace);
        if (step % 40 == 10) PressKey(cabinet.main, Key::kRight);
        if (step % 40 == 20) ReleaseKey(cabinet.main, Key::kRight);
        cabinet.Tick(160);
        if (step % 60 == 0 && shell.run.mode == kModePlaying) keep();
    }
    keep();  // the last frame, with its banner
    const ViewerWindow window;
    ShowRun(RunOf(shell.run.tape, shell.run.final_score));
    MatchWells();
    ASSERT_EQ(ClientSize(viewer.well), ClientSize(shell.well));
    ASSERT_GE(moments.size(), 3u);
    for (const Moment& moment : moments) {
        viewer.transport.GoTo(moment.tick_ms);
        InvalidateWindow(viewer.well);
        PumpMessages();
        EXPECT_TRUE(GrabWindow(viewer.well) == moment.picture) << moment.tick_ms;
    }
    EXPECT_TRUE(viewer.transport.AtEnd());
}

TEST(ViewerWindow, IsGovernedByKeysButtonsAndTheBar) {
    ManualClock clock;
    SetInlineWorkers(true);
    const ViewerWindow window;
    int64_t score = 0;
    const InputTape tape = PlayedTape(3'000, 1, score);
    ShowRun(RunOf(tape, score));
    const auto length = viewer.shown->course.LengthMs() / kTickMs;
    EXPECT_NE(window.Spoken().find("Score 0, level 1, lives 3"), std::string::npos) << window.Spoken();
    EXPECT_FALSE(TimerRunning(viewer.main, kViewerTimer));

    window.Press(Key::kSpace);
    clock.AdvanceMs(1'600);
    FireTimer(viewer.main, kViewerTimer);
    EXPECT_EQ(window.Tick(), 100u);
    window.Press(Key::kUp);  // twice as fast
    clock.AdvanceMs(160);
    FireTimer(viewer.main, kViewerTimer);
    EXPECT_EQ(window.Tick(), 120u);
    for (int i = 0; i < 4; ++i) window.Press(Key::kDown);  // an eighth
    clock.AdvanceMs(128);
    FireTimer(viewer.main, kViewerTimer);
    EXPECT_EQ(window.Tick(), 121u);
    for (const auto& [key, tick] : {std::pair(Key::kRight, 122u), std::pair(Key::kLeft, 121u)}) {
        window.Press(key);
        EXPECT_EQ(window.Tick(), tick);
        EXPECT_FALSE(viewer.transport.Playing());
    }
    window.Press(Key::kHome);
    EXPECT_EQ(window.Tick(), 0u);
    window.Press(Key::kPageDown);
    EXPECT_EQ(window.Tick(), tape.events[0].tick_ms / kTickMs);
    window.Press(Key::kEnd);
    EXPECT_NE(window.Spoken().find("lives 2"), std::string::npos) << window.Spoken();
    for (int i = 0; i < 3; ++i) window.Press(Key::kEnd);
    EXPECT_EQ(window.Tick(), length);
    EXPECT_NE(window.Spoken().find("Game over. Score " + std::to_string(score)), std::string::npos);

    // A click on the bar goes there; a step of it is a tick.
    const Rect bar = ControlRect(viewer.main, kViewerSeek);
    PressPointer(viewer.main, {bar.x + bar.w / 2, bar.y + bar.h / 2});
    ReleasePointer(viewer.main, {bar.x + bar.w / 2, bar.y + bar.h / 2});
    PumpMessages();
    EXPECT_NEAR(static_cast<double>(window.Tick()), static_cast<double>(length) / 2,
                static_cast<double>(length) / 50);
    const Image without = GrabWindow(viewer.well);
    window.ClickOn(kViewerInputs);
    EXPECT_FALSE(GrabWindow(viewer.well) == without);
    window.ClickOn(kViewerInputs);
    int64_t other = 0;
    ShowGhost(RunOf(PlayedTape(2'000, 30, other), other, "bob"));
    PumpMessages();
    EXPECT_FALSE(GrabWindow(viewer.well) == without);
    EXPECT_NE(ControlText(viewer.main, kViewerTime).find("bob"), std::string::npos);
    window.ClickOn(kViewerGhost);
    EXPECT_TRUE(GrabWindow(viewer.well) == without);
    SetInlineWorkers(false);
}

TEST(ViewerWindow, SaysWhereARunFailsAndListsTheOthers) {
    SetInlineWorkers(true);
    const ViewerWindow window;
    int64_t score = 0;
    InputTape bent = PlayedTape(1'000, 1, score);
    bent.events.insert(bent.events.begin() + 1, {bent.events[0].tick_ms, kInputServe});
    if (bent.events[0].code != kInputServe) bent.events.insert(bent.events.begin() + 1, bent.events[0]);
    WatchedRun failing = RunOf(bent, score, "eve"), unplayable = failing,
               good = RunOf(PlayedTape(500, 2, score), score);
    unplayable.tape.reset();
    LoadedRuns loaded;
    loaded.title = "Runs";
    loaded.runs = {good, failing, unplayable};
    ShowLoaded(std::move(loaded));
    PumpMessages();
    ASSERT_NE(viewer.list, 0u);
    EXPECT_NE(AccessibleName(viewer.list, kFirstListRow).find("ada"), std::string::npos);
    EXPECT_NE(AccessibleName(viewer.list, kFirstListRow + 1).find("unsound"), std::string::npos);
    EXPECT_FALSE(ControlEnabled(viewer.list, kFirstListRow + 2));
    Click(viewer.list, kFirstListRow + 1);
    EXPECT_EQ(viewer.list, 0u);
    ASSERT_TRUE(viewer.shown);
    window.Press(Key::kEnd);
    while (!viewer.transport.AtEnd()) window.Press(Key::kEnd);
    EXPECT_EQ(window.Spoken().find("HERE IT FAILS: event "), 0u) << window.Spoken();

    ShowLoaded({.runs = {}, .title = {}, .note = {}, .error = "the services do not answer"});
    EXPECT_EQ(ControlText(viewer.main, kViewerTime).empty(), false);
    SetInlineWorkers(false);
}

}  // namespace
}  // namespace brickfall
