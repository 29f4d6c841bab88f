// The whole cabinet on a desktop: window manager, pointer, keyboard, the companion's window, every service.
#include <gtest/gtest.h>

#include "cabinet/shell_state.h"
#include "cabinet/sound.h"
#include "cabinet/ui_settings.h"
#include "deployment/deployment.h"
#include "platform/automation.h"
#include "tests/e2e/desktop_robot.h"
#include "tests/e2e/paid_desktop.h"
#include "tests/support/sealed_message.h"

namespace brickfall {
namespace {

constexpr Point kAddMoney = {400, 88};
constexpr Point kApprove = {95, 229};
constexpr char kPlaceOfP[] = "33";  // the number that X servers give the key

constexpr Color kBannerEdge = Rgb(0xDC2830);

TEST(PaidLoop, FromConnectToUnbind) {
    const WorkingFolder folder;  // where the architect's key file lies
    PaidDesktop desktop;
    WaitFor("the window", [] { return WindowIsUp(kMainTitle); });
    sandbox::Sandbox& box = desktop.services.box;
    ASSERT_TRUE(box.AppointArchitect("userinfo"));
    EXPECT_EQ(Text(1007), "Connect Pouch, then Play.");
    EXPECT_EQ(Text(1003), "Wallet: not connected");
    Screenshot("1-attract");

    ClickBehind(kCompanionTitle, kAddMoney);
    ASSERT_TRUE(WaitFor("play money", [&] { return box.TotalFunded() == 100'000; }));
    ClickOn(shell.main, 1001);
    ASSERT_TRUE(WaitForStatus("Waiting for Pouch to approve"));
    EXPECT_FALSE(ControlEnabled(shell.main, 1005));
    RunFor(700);
    Screenshot("2-connect");
    Click(kCompanionTitle, kApprove);
    ASSERT_TRUE(WaitForStatus("Connected. Play when you are funded."));
    EXPECT_SOON(Xdotool("getactivewindow getwindowname") == kMainTitle) << "the player goes on here";
    ASSERT_TRUE(WaitFor("the name on the host", [&] { return box.Identity("player").has_value(); }));
    EXPECT_TRUE(WaitFor("the balance", [] { return Text(1004) == "Pouch balance:  0.00100000 BSV"; }));
    EXPECT_EQ(Text(1001), "Connected");
    EXPECT_EQ(Text(1003), std::string("Wallet: player@") + kPaymailDomain);

    // An impatient hand while the name is looked up: what it clicks meanwhile asks for nothing more.
    desktop.FreezeLate();
    const Rect play = ControlRect(shell.main, 1005);
    MoveTo(kMainTitle, {play.x + play.w / 2, play.y + play.h / 2});
    Xdotool("click 1 sleep 0.4 click 1 click 1");
    EXPECT_TRUE(WaitForStatus("This identity is frozen. No play."));
    RunFor(300);
    EXPECT_EQ(desktop.LookUps(), 1);
    EXPECT_TRUE(ControlEnabled(shell.main, 1005));
    box.ClearFaults();

    // Enter: the confirmation is a real box.
    AnswerBox("Brickfall", "Return");
    ClickOn(shell.main, 1005);
    ASSERT_TRUE(WaitForStatus("Entered. Blocks incoming."));
    EXPECT_EQ(box.BalanceOf(kArcadeHouseAddress), 2'000);
    EXPECT_EQ(box.BalanceOf(kArcadePotAddress), 3'000);
    EXPECT_TRUE(WaitFor("the pot", [] { return Text(1011) == "Current weekly pot:  0.00003000 BSV"; }));

    // Play.
    ASSERT_EQ(shell.run.mode, kModePlaying);
    EXPECT_FALSE(shell.run.game.ball_live);
    PressKeys("space");
    EXPECT_SOON(shell.run.game.ball_live);
    const int32_t paddle = shell.run.game.paddle_x;
    Xdotool("keydown Left");
    EXPECT_SOON(shell.run.game.paddle_x < paddle);
    Xdotool("keyup Left");
    EXPECT_SOON(!shell.run.game.left_held);
    // The window system repeats a key that is held this long; the tape has its two edges alone.
    const auto& events = shell.run.tape.events;
    const std::size_t before = events.size();
    Xdotool("keydown Right");
    RunFor(1'200);
    Xdotool("keyup Right");
    EXPECT_SOON(!shell.run.game.right_held);
    RunFor(50);
    EXPECT_EQ(events.size(), before + 2);
    Screenshot("4-playing");
    // Another program takes the focus: the run goes on, a held key stays held and its end is seen.
    Xdotool("keydown Right");
    Xdotool("windowactivate --sync $(xdotool search --onlyvisible --name '^Pouch .sandbox.$')");
    EXPECT_SOON(!HasFocus(shell.main));
    RunFor(300);
    EXPECT_FALSE(shell.run.game.paused);
    EXPECT_EQ(events.size(), before + 3);
    Xdotool("keyup Right");
    EXPECT_SOON(events.size() == before + 4);
    Xdotool("windowactivate --sync $(xdotool search --onlyvisible --name '^Brickfall$')");
    EXPECT_SOON(HasFocus(shell.main));
    EXPECT_EQ(events.size(), before + 4);
    RunShell("setxkbmap ru");  // the letters write another script; the key is where it was
    PressKeys(kPlaceOfP);
    EXPECT_SOON(shell.run.game.paused);
    EXPECT_EQ(Text(1007), "Paused.");
    RunFor(50);
    Screenshot("5-paused");
    PressKeys(kPlaceOfP);
    EXPECT_SOON(!shell.run.game.paused);
    RunShell("setxkbmap us");
    EXPECT_EQ(Text(1007), "Back.");
    desktop.LoseTheRun([] { PressKeys("space"); });
    ASSERT_EQ(shell.run.mode, kModeGameOver);
    EXPECT_SOON(HeardMidiMessage(0x07B1 | 85 * 127 / 100 << 16));  // the jingle's channel, at its volume
    EXPECT_EQ(Text(1007), "Game over. Record this score on-chain (1 sat).");
    EXPECT_TRUE(ControlEnabled(shell.main, 1006));
    ASSERT_GE(shell.run.final_score, 1);
    EXPECT_EQ(ui_doc["week_scores"].size(), 1u);
    const Point on_the_banners_edge = {16 + 18 + 24, 178 + 14 + shell.cell.h * 9};
    EXPECT_SOON(ColorOnScreen(kMainTitle, on_the_banners_edge) == kBannerEdge);
    Screenshot("6-game-over");

    // Record, and the board beside the window.
    MoveWindow(shell.main, {700, 100});  // from wherever the desktop has put it to where the left has room
    ClickOn(shell.main, 1006);
    ASSERT_TRUE(WaitFor(
        "the board", [] { return WindowExists(shell.board); }, 60));
    EXPECT_EQ(shell.run.mode, kModeRecorded);
    EXPECT_FALSE(ControlEnabled(shell.main, 1006));
    EXPECT_EQ(box.BalanceOf(kArcadeWatchAddress), 1);
    ASSERT_EQ(shell.board_view.rows.size(), 1u);
    EXPECT_EQ(shell.board_view.rows[0].txid, shell.run.record_txid);
    EXPECT_TRUE(shell.board_view.rows[0].verified);
    EXPECT_SOON(shell.board_view.my_key == "player");
    EXPECT_SOON(WindowRect(shell.board) == (Rect{700 - 540 - 8, 100, 540, 878}));
    EXPECT_SOON(ColorOnScreen(kMainTitle, on_the_banners_edge) != kBannerEdge);
    Screenshot("7-recorded");
    ClickOn(shell.board, 1102);
    EXPECT_TRUE(WaitFor("the board's end", [] { return !WindowExists(shell.board); }));

    // Settings: a switch and a slider; that each of them acts and lasts is tried elsewhere.
    ClickOn(shell.main, 1015);
    ASSERT_TRUE(WaitFor("the settings", [] { return WindowIsUp("Settings"); }));
    RunFor(500);  // until it stands where it will
    Screenshot("10-settings");
    ClickOn(shell.settings, 1301);
    EXPECT_SOON(!music_on);
    FocusControl(shell.settings, 1301);
    PressKeys("space");
    EXPECT_SOON(music_on.load());
    const int32_t loud = music_vol;
    const Rect slider = ControlRect(shell.settings, 1303);
    Click("Settings", {slider.x + slider.w / 4, slider.y + slider.h / 2});
    EXPECT_SOON(music_vol < loud);
    ClickOn(shell.settings, 1307);
    EXPECT_TRUE(WaitFor("the settings' end", [] { return !WindowExists(shell.settings); }));

    // Help.
    ClickOn(shell.main, 1013);
    ASSERT_TRUE(WaitFor("the help", [] { return WindowIsUp("Brickfall - Help"); }));
    RunFor(500);
    Screenshot("11-help");
    PressKeys("Escape");
    EXPECT_TRUE(WaitFor("the help's end", [] { return !WindowExists(shell.help); }));

    // A report, typed; the architect reads it word for word.
    ClickOn(shell.main, 1017);
    ASSERT_TRUE(WaitFor("the report window", [] { return WindowIsUp("Report"); }));
    RunFor(500);
    TypeKeys("The ball went through the wall.");
    EXPECT_SOON(ControlText(shell.report, 1401) == "The ball went through the wall.");
    Screenshot("12-report");
    ClickOn(shell.report, 1402);
    ASSERT_TRUE(WaitForStatus("Report sent. "));
    EXPECT_FALSE(WindowExists(shell.report));
    ASSERT_EQ(box.Reports().size(), 1u);
    EXPECT_EQ(box.Reports()[0].text, "The ball went through the wall.");
    EXPECT_EQ(box.Reports()[0].handle, "player");
    EXPECT_EQ(box.BalanceOf(kReportFeeAddress), 1'000);

    // Unbind.
    ClickOn(shell.main, 1002);
    ASSERT_TRUE(WaitForStatus("Unbound. Connect again to pick a wallet in Pouch."));
    EXPECT_EQ(Text(1003), "Wallet: not connected");
    EXPECT_EQ(box.TotalFunded(), box.TotalUnspent() + box.TotalFees());
}

}  // namespace
}  // namespace brickfall

int main(int count, char** arguments) {
    ::testing::InitGoogleTest(&count, arguments);
    const brickfall::Platform platform(count, arguments);
    return RUN_ALL_TESTS();
}
