// The whole cabinet on a desktop: window manager, pointer, keyboard, the companion's window, every service.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>

#include "base/files.h"
#include "cabinet/shell_state.h"
#include "cabinet/sound.h"
#include "cabinet/startup.h"
#include "cabinet/theme.h"
#include "cabinet/ui_settings.h"
#include "deployment/deployment.h"
#include "messages/direct_message.h"
#include "messages/verification.h"
#include "platform/automation.h"
#include "tests/e2e/desktop_robot.h"
#include "tests/support/child_process.h"
#include "tests/support/sealed_message.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/app_binds.h"

namespace brickfall {
namespace {

constexpr Point kAddMoney = {400, 88};
constexpr Point kApprove = {95, 229};
constexpr char kPlaceOfP[] = "33";  // the number that X servers give the key

std::string Text(int control) { return ControlText(shell.main, control); }

bool WaitForStatus(const std::string& text, int seconds = 30) {
    return WaitFor(
        "status \"" + text + "\", not \"" + Text(1007) + "\"",
        [&text] { return Text(1007).starts_with(text); }, seconds);
}

std::string SandboxProgram(const char* name) {
    return std::string(BRICKFALL_BINARY_DIR) + "/sandbox/" + name;
}

// The middle of a brick's place in the main window, by the cell size of the layout.
Point BrickAt(int row, int column) {
    const CellSize cell = shell.cell;
    return {16 + 18 + cell.w * column + cell.w / 2, 178 + 14 + cell.h * (row + 1) + cell.h / 2};
}

constexpr Color kField = Rgb(0x040A08);
constexpr Color kTopBrick = Rgb(0xC46C28);
constexpr Color kBannerGround = Rgb(0x08100C);
constexpr Color kBannerEdge = Rgb(0xDC2830);

// A store, the services, the companion and the cabinet, each as on a player's desktop.
struct Desktop {
    Desktop() {
        ::setenv("BRICKFALL_SANDBOX_CONNECT", services.box.ConnectTo().c_str(), 1);
        ::setenv("BRICKFALL_SANDBOX_CA", services.box.CaFile().c_str(), 1);
        // As in a new process: another wallet bears the same name in each story.
        ResetBindingForTest();
        ClearIdentityKeyCache();
        ClearEncryptionKeys();
        companion.emplace(SandboxProgram("brickfall-companion-window"), std::vector<std::string>{"player"});
        companion->ReadUntil("companion ready");
        Start();
    }

    ~Desktop() { Stop(); }

    // As in a new process: what the settings were is in their file alone.
    void Start() {
        music_on = sfx_on = true;
        music_vol = 70;
        sfx_vol = 85;
        StartCabinet(data.Path() + "/cabinet", OpenRecordingMidi);
        WaitFor("the window", [] { return WindowIsUp(kMainTitle); });
    }

    // A funded wallet, connected; answers in the companion's window.
    void ConnectFunded() {
        ClickBehind(kCompanionTitle, kAddMoney);
        ASSERT_TRUE(WaitFor("play money", [this] { return services.box.TotalFunded() == 100'000; }));
        ClickOn(shell.main, 1001);
        ASSERT_TRUE(WaitForStatus("Waiting for Pouch to approve"));
        EXPECT_FALSE(ControlEnabled(shell.main, 1005));
        RunFor(700);
        Screenshot("2-connect");
        Click(kCompanionTitle, kApprove);
        ASSERT_TRUE(WaitForStatus("Connected. Play when you are funded."));
        ASSERT_TRUE(
            WaitFor("the name on the host", [this] { return services.box.Identity("player").has_value(); }));
        EXPECT_TRUE(WaitFor("the balance", [] { return Text(1004) == "Pouch balance:  0.00100000 BSV"; }));
    }

    void Stop() {
        if (WindowExists(shell.main)) DestroyWindow(shell.main);
        PumpMessages();
    }

    SandboxFixture services;
    TempUserData data;
    JumpingClock clock;
    std::optional<ChildProcess> companion;
};

// Plays on, serving whenever the ball rests, until the run is over.
void LoseTheRun(Desktop& desktop) {
    for (int serve = 0; serve < 20 && shell.run.mode == kModePlaying; ++serve) {
        PressKeys("space");
        for (int jump = 0; jump < 60 && shell.run.mode == kModePlaying && shell.run.game.ball_live; ++jump) {
            desktop.clock.JumpMs(1'000);
            RunFor(40);
        }
    }
}

bool WasHeard(uint32_t message) {
    const std::vector<uint32_t> heard = TakeMidiMessages();
    return std::find(heard.begin(), heard.end(), message) != heard.end();
}

TEST(PaidLoop, FromConnectToUnbind) {
    Desktop desktop;
    sandbox::Sandbox& box = desktop.services.box;
    EXPECT_EQ(Text(1007), "Connect Pouch, then Play.");
    EXPECT_EQ(Text(1003), "Wallet: not connected");
    EXPECT_EQ(ColorOnScreen(kMainTitle, BrickAt(0, 6)), kField);  // no wall yet
    Screenshot("1-attract");

    desktop.ConnectFunded();
    EXPECT_EQ(Text(1001), "Connected");
    EXPECT_EQ(Text(1003), std::string("Wallet: player@") + kPaymailDomain);
    std::string address;
    std::string paymail;
    bool is_hd = false;
    ASSERT_TRUE(WalletSummary(address, paymail, is_hd));
    EXPECT_EQ(box.BalanceOf(address), 100'000);

    // An impatient hand while the name is looked up: what it clicks meanwhile asks for nothing more.
    sandbox::Fault late;
    late.kind = sandbox::FaultKind::kDelay;
    late.delay_ms = 1'200;
    late.path_contains = "/api/paymail/identity/";
    box.AddFault(sandbox::Service::kPaymail, late);
    desktop.services.Reply(sandbox::Service::kPaymail, late.path_contains, 200, R"({"frozen":true})");
    const auto look_ups = [&] {
        const std::vector<std::string> requests = box.Requests(sandbox::Service::kPaymail);
        return std::count_if(requests.begin(), requests.end(), [&](const std::string& request) {
            return request.find(late.path_contains) != std::string::npos;
        });
    };
    const Rect play = ControlRect(shell.main, 1005);
    MoveTo(kMainTitle, {play.x + play.w / 2, play.y + play.h / 2});
    Xdotool("click 1 sleep 0.4 click 1 click 1");
    EXPECT_TRUE(WaitForStatus("This identity is frozen. No play."));
    RunFor(300);
    EXPECT_EQ(look_ups(), 1);
    EXPECT_TRUE(ControlEnabled(shell.main, 1005));
    box.ClearFaults();

    // Enter: the confirmation is a real box.
    AnswerBox("Brickfall", "Return", "3-confirm");
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
    EXPECT_EQ(ColorOnScreen(kMainTitle, BrickAt(0, 6)), kTopBrick);
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
    LoseTheRun(desktop);
    ASSERT_EQ(shell.run.mode, kModeGameOver);
    EXPECT_SOON(WasHeard(0x07B1 | 85 * 127 / 100 << 16));  // the jingle's channel, at the sound's volume
    EXPECT_EQ(Text(1007), "Game over. Record this score on-chain (1 sat).");
    EXPECT_TRUE(ControlEnabled(shell.main, 1006));
    ASSERT_GE(shell.run.final_score, 1);
    EXPECT_EQ(ui_doc["week_scores"].size(), 1u);
    const Rect field = {16 + 18, 178 + 14, shell.cell.w * 13, shell.cell.h * 18};
    const Point in_banner = {field.x + 30, field.y + field.h / 2 - 120};
    const Point on_its_edge = {field.x + 24, field.y + field.h / 2};
    EXPECT_SOON(ColorOnScreen(kMainTitle, in_banner) == kBannerGround);
    EXPECT_SOON(ColorOnScreen(kMainTitle, on_its_edge) == kBannerEdge);
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
    EXPECT_SOON(ColorOnScreen(kMainTitle, on_its_edge) != kBannerEdge);
    EXPECT_SOON(ColorOnScreen("Weekly top scores", {2, 400}) == kBgColor);
    Screenshot("7-recorded");
    ClickOn(shell.board, 1102);
    EXPECT_TRUE(WaitFor("the board's end", [] { return !WindowExists(shell.board); }));

    // Unbind.
    ClickOn(shell.main, 1002);
    ASSERT_TRUE(WaitForStatus("Unbound. Connect again to pick a wallet in Pouch."));
    EXPECT_EQ(Text(1003), "Wallet: not connected");
    EXPECT_EQ(box.TotalFunded(), box.TotalUnspent() + box.TotalFees());
}

TEST(PaidLoop, EveryOtherButton) {
    constexpr uint32_t kVolumeOfLead = 0x07B0;
    const WorkingFolder folder;  // where the architect's key file lies
    Desktop desktop;
    sandbox::Sandbox& box = desktop.services.box;
    ASSERT_TRUE(box.AppointArchitect("userinfo"));
    desktop.ConnectFunded();

    // Settings: each switch and each slider by mouse and by keyboard.
    ClickOn(shell.main, 1015);
    ASSERT_TRUE(WaitFor("the settings", [] { return WindowIsUp("Settings"); }));
    RunFor(500);  // until it stands where it will
    Screenshot("10-settings");
    for (const auto& [button, name] : {std::pair(1301, "Music"), std::pair(1302, "Sound")}) {
        const auto reads = [button = button, name = name](const char* state) {
            return ControlText(shell.settings, button) == std::string(name) + "  " + state;
        };
        ClickOn(shell.settings, button);
        EXPECT_SOON(reads("Off"));
        FocusControl(shell.settings, button);
        PressKeys("space");
        EXPECT_SOON(reads("On"));
        PressKeys("Return");
        EXPECT_SOON(reads("Off"));
    }
    const auto heard_at = [](uint32_t volume) {
        return WasHeard(kVolumeOfLead | static_cast<uint32_t>(volume * 127 / 100) << 16);
    };
    for (const int bar : {1303, 1304}) {
        const std::atomic<int32_t>& volume = bar == 1303 ? music_vol : sfx_vol;
        const int32_t before = volume;
        const Rect rect = ControlRect(shell.settings, bar);
        Click("Settings", {rect.x + rect.w / 4, rect.y + rect.h / 2});
        EXPECT_SOON(volume < before);
        const int32_t clicked = volume;
        EXPECT_TRUE(bar == 1304 || heard_at(static_cast<uint32_t>(clicked)));
        FocusControl(shell.settings, bar);
        PressKeys("Left");
        EXPECT_SOON(volume < clicked);
        EXPECT_TRUE(bar == 1304 || heard_at(static_cast<uint32_t>(volume)));
    }
    const int32_t music_left_at = music_vol;
    const int32_t sound_left_at = sfx_vol;
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

    // A newer build: asked at each start, opened on Yes only; and the settings have lasted.
    TakeOpenedAddresses();
    ASSERT_TRUE(box.SetBuild("0.002"));
    for (const auto& [key, opened] : {std::pair("Escape", 0u), std::pair("Return", 1u)}) {
        desktop.Stop();
        AnswerBox("Brickfall update", key);
        desktop.Start();
        ASSERT_TRUE(WaitFor("the prompt's end", [] {
            return Text(1016) == std::string("Update available, ") + kDownloadPageUrl;
        }));
        EXPECT_EQ(TakeOpenedAddresses().size(), opened);
    }
    EXPECT_FALSE(music_on || sfx_on);
    EXPECT_EQ(music_vol, music_left_at);
    EXPECT_EQ(sfx_vol, sound_left_at);
    EXPECT_EQ(Text(1001), "Connected");
}

}  // namespace
}  // namespace brickfall

int main(int count, char** arguments) {
    ::testing::InitGoogleTest(&count, arguments);
    const brickfall::Platform platform(count, arguments);
    return RUN_ALL_TESTS();
}
