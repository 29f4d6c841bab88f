// What the keyboard does is what the tape says, whatever the window system does around it.
#include <gtest/gtest.h>

#include "cabinet/private_messages.h"
#include "cabinet/shell_layout.h"
#include "cabinet/shell_state.h"
#include "tests/cabinet/cabinet_fixture.h"

namespace brickfall {
namespace {

constexpr int kLeftDown = 1, kRightDown = 2, kServe = 7, kLeftUp = 9, kRightUp = 10;

struct Playing : CabinetFixture {
    Playing() {
        BeginRun();
        Tick(160);
    }
};

TEST(Keyboard, LetsGoOfAHeldKeyWithoutTheFocusWhereTheWindowSystemDoesNotTell) {
    Playing cabinet;
    PressKey(cabinet.main, Key::kRight);
    cabinet.Tick(16);
    PretendFocusLost(true);
    cabinet.Tick(16);
    EXPECT_EQ(cabinet.TapeCodes(), (Codes{kRightDown, kRightUp}));
    cabinet.Tick(160);
    EXPECT_FALSE(shell.run.game.paused);  // losing the focus pauses nothing
    PretendFocusLost(false);
    cabinet.Tick(16);
    EXPECT_EQ(cabinet.TapeCodes().size(), 2u);
    PressKey(cabinet.main, Key::kRight, /*is_repeat=*/true);  // still held, as its repeat tells
    EXPECT_EQ(cabinet.TapeCodes(), (Codes{kRightDown, kRightUp, kRightDown}));
}

TEST(Keyboard, WritesDownAtResumeWhatChangedDuringAPause) {
    Playing cabinet;
    PressKey(cabinet.main, Key::kLeft);
    cabinet.Tick(16);
    PressKey(cabinet.main, Key::kP);
    const uint64_t standstill = shell.run.sim_clock_ms;
    ReleaseKey(cabinet.main, Key::kLeft);
    cabinet.TapKey(Key::kSpace);
    cabinet.TapKey(Key::kRight);
    cabinet.Tick(5'000);
    EXPECT_EQ(cabinet.TapeCodes(), (Codes{kLeftDown}));
    PressKey(cabinet.main, Key::kP);
    EXPECT_EQ(cabinet.TapeCodes(), (Codes{kLeftDown, kLeftUp}));
    EXPECT_EQ(shell.run.tape.events.back().tick_ms, standstill);
    PressKey(cabinet.main, Key::kSpace, /*is_repeat=*/true);  // held from before
    EXPECT_EQ(cabinet.TapeCodes().size(), 2u);
    PressKey(cabinet.main, Key::kSpace);
    EXPECT_EQ(cabinet.TapeCodes().back(), kServe);
}

TEST(Keyboard, GoesOnPlayingBehindAModalBox) {
    Playing cabinet;
    PressKey(cabinet.main, Key::kLeft);
    const uint64_t before = shell.run.sim_clock_ms;
    AnswerMessageBoxes([&cabinet](std::string_view, std::string_view) {
        cabinet.Tick(320);
        return false;
    });
    cabinet.Post(kMsgUpdateDone, 100);
    AnswerMessageBoxes({});
    EXPECT_EQ(shell.run.sim_clock_ms - before, 320u);
    EXPECT_EQ(cabinet.TapeCodes().front(), kLeftDown);
}

TEST(Keyboard, TakesTheFocusBackForTheGameUnlessAToolWindowIsOpen) {
    Playing cabinet;
    FocusControl(cabinet.main, 1013);
    EXPECT_FALSE(HasFocus(cabinet.main));
    cabinet.Tick(16);
    EXPECT_TRUE(HasFocus(cabinet.main));
    PressKey(cabinet.main, Key::kLeft);
    cabinet.Click(1015);
    ReleaseKey(shell.settings, Key::kLeft);
    PressKey(cabinet.main, Key::kP);  // resumed behind the settings
    EXPECT_EQ(cabinet.TapeCodes(), (Codes{kLeftDown, kLeftUp})) << "known in every window";
    FocusControl(shell.settings, 1303);
    cabinet.Tick(16);
    EXPECT_EQ(FocusedControl(shell.settings), 1303);
}

TEST(Keyboard, RecordsByReturnOrAClickOnTheBannerButNeverBySpace) {
    Playing cabinet;
    const auto told = [&](const std::function<void()>& act) {
        SetStatus("-");
        act();
        PumpMessages();
        return cabinet.Text(1007);
    };
    const auto press = [&](Key key) { return [&cabinet, key] { cabinet.TapKey(key); }; };
    const auto click = [](Point at) {
        return [at] {
            PressPointer(shell.well, at);
            ReleasePointer(shell.well, at);
        };
    };
    const int cell = shell.run.game.cell_w;
    const Point middle = {18 + 13 * cell / 2, 14 + 9 * cell}, outside = {18 + 8, 14 + 9 * cell};
    EXPECT_EQ(told(press(Key::kReturn)) + told(click(middle)), "--") << "the run is on";
    shell.run.game.game_over = true;
    FinishRun(shell.run, shell.driver.run);
    constexpr char kRecords[] = "Missing enter txid.";
    EXPECT_EQ(told(press(Key::kReturn)), kRecords);
    EXPECT_EQ(told(click(middle)), kRecords);
    EXPECT_EQ(told(press(Key::kSpace)), "-");
    EXPECT_EQ(told(click(outside)), "-");
    EXPECT_EQ(told([&] { PressKey(cabinet.main, Key::kReturn, /*is_repeat=*/true); }), "-");
    EXPECT_EQ(told([&] {
                  PressPointer(shell.well, middle);
                  ReleasePointer(shell.well, outside);
              }),
              "-");
    shell.run.busy = true;
    EXPECT_EQ(told(press(Key::kReturn)), "-");
    shell.run.busy = false;
    FocusControl(cabinet.main, 1013);
    EXPECT_EQ(told(press(Key::kReturn)), "-") << "it presses Help";
    EXPECT_TRUE(WindowExists(shell.help));
}

TEST(Keyboard, WalksTheButtonsByTabAndPressesThem) {
    CabinetFixture cabinet;
    FocusWindow(cabinet.main);
    for (const int next : {1015, 1005, 1001, 1002, 1012, 1013}) {
        PressTab();
        EXPECT_EQ(FocusedControl(cabinet.main), next);
    }
    cabinet.TapKey(Key::kSpace);
    PumpMessages();
    EXPECT_TRUE(WindowExists(shell.help));
    PressKey(cabinet.main, Key::kEscape);
    EXPECT_TRUE(WindowExists(cabinet.main)) << "it closes tool windows only";
}

}  // namespace
}  // namespace brickfall
