#include "cabinet/shell.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <nlohmann/json.hpp>
#include <thread>
#include <tuple>

#include "base/files.h"
#include "base/workers.h"
#include "board/board_load.h"
#include "cabinet/controls.h"
#include "cabinet/images.h"
#include "cabinet/private_messages.h"
#include "cabinet/shell_labels.h"
#include "cabinet/shell_layout.h"
#include "cabinet/shell_state.h"
#include "cabinet/theme.h"
#include "cabinet/ui_settings.h"
#include "cabinet/update_check.h"
#include "deployment/deployment.h"
#include "tests/cabinet/cabinet_fixture.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/link/status_refresh.h"

namespace brickfall {

namespace {

// Counts what is alive, so that a payload that nobody takes shows.
class CountedPayload : public Payload {
  public:
    CountedPayload() { ++alive; }
    ~CountedPayload() override { --alive; }
    static inline int alive = 0;
};

TEST(Shell, LaysOutTheControlTableAtEverySize) {
    CabinetFixture cabinet;
    struct Case {
        Size client;
        int cell;  // worked out by hand from the layout's rule
    };
    for (const auto& [client, cell] :
         {Case{{1320, 1300}, 55}, Case{{1200, 1040}, 40}, Case{{3840, 2160}, 102}}) {
        SCOPED_TRACE(client.w);
        cabinet.Resize(client);
        ASSERT_EQ(ClientSize(cabinet.main), client);
        const int w = client.w;
        const int h = client.h;
        const std::pair<int, Rect> controls[] = {{1008, {96, 14, 264, 36}},
                                                 {1009, {96, 50, 220, 20}},
                                                 {1015, {376, 20, 44, 38}},
                                                 {1005, {428, 22, 150, 34}},
                                                 {1001, {586, 22, 110, 34}},
                                                 {1002, {704, 22, 100, 34}},
                                                 {1011, {16, 116, w - 32, 22}},
                                                 {1006, {16, 140, 140, 34}},
                                                 {1012, {164, 140, 170, 34}},
                                                 {1013, {342, 140, 90, 34}},
                                                 {1017, {440, 140, 90, 34}},
                                                 {1007, {16, h - 74, w - 32, 20}},
                                                 {1014, {(w - 110) / 2, h - 50, 110, 34}},
                                                 {1016, {16, h - 42, 240, 20}}};
        for (const auto& [id, rect] : controls) EXPECT_EQ(ControlRect(cabinet.main, id), rect) << id;
        EXPECT_EQ(ChildRect(shell.well), (Rect{16, 178, w - 32, h - 256}));
        EXPECT_EQ(shell.cell.w, cell);
        EXPECT_EQ(shell.cell.h, cell);
    }
    // The balance line follows the wallet line's end.
    const Rect line = ControlRect(cabinet.main, 1003);
    EXPECT_EQ(line.w, std::max(MeasureText(theme.font_small, "Wallet: not connected").w + 8, 80));
    EXPECT_EQ(ControlRect(cabinet.main, 1004), (Rect{line.w + 36, 92, 360, 22}));
}

TEST(Shell, ComesUpWithItsTextsAndRecordDisabled) {
    CabinetFixture cabinet;
    EXPECT_EQ(WindowTitle(cabinet.main), "Brickfall");
    const std::pair<int, const char*> texts[] = {{1008, "Brickfall"},
                                                 {1009, "Orvane Arcade"},
                                                 {1005, "Play  5000 sats"},
                                                 {1001, "Connect"},
                                                 {1002, "Unbind"},
                                                 {1003, "Wallet: not connected"},
                                                 {1004, "Pouch balance:  -"},
                                                 {1006, "Record score"},
                                                 {1012, "Weekly top scores"},
                                                 {1013, "Help"},
                                                 {1017, "Report"},
                                                 {1007, "Connect Pouch, then Play."},
                                                 {1014, "Close"},
                                                 {1011, "Current weekly pot:  0.00000000 BSV"},
                                                 {1016, "Version 0.001"}};
    for (const auto& [id, text] : texts) EXPECT_EQ(cabinet.Text(id), text);
    for (const int id : {1001, 1002, 1005, 1012, 1013, 1014, 1015, 1017}) {
        EXPECT_TRUE(ControlEnabled(cabinet.main, id)) << id;
        EXPECT_NE(AccessibleName(cabinet.main, id), "") << id;
    }
    EXPECT_FALSE(ControlEnabled(cabinet.main, 1006));
    EXPECT_EQ(AccessibleName(cabinet.main, 1015), "Settings");
    EXPECT_EQ(AccessibleRole(cabinet.main, 1016), "text");
}

TEST(Shell, ReadsTheWellOutToAScreenReader) {
    CabinetFixture cabinet;
    const std::string keys = "Left and Right move the paddle, Space serves, P pauses";
    const auto expect = [&](const std::string& state) {
        EXPECT_EQ(AccessibleDescription(shell.well), state + ". " + keys);
    };
    expect("INSERT 5000 SATS");
    cabinet.BeginRun();
    cabinet.Tick(16);
    expect("Score 0, level 1, lives 3");
    shell.run.game.score = 70;
    shell.run.game.lives = 2;
    shell.run.game.level = 4;
    cabinet.Tick(16);
    expect("Score 70, level 4, lives 2");
    PressKey(cabinet.main, Key::kP);
    expect("PAUSED. Score 70, level 4, lives 2");
    PressKey(cabinet.main, Key::kP);
    shell.run.game.lives = 0;
    shell.run.game.game_over = true;
    FinishRun(shell.run, shell.driver.run);
    expect("GAME OVER. Score 70, level 4, lives 0");
    OnPayResult(shell.run, shell.driver, kPayRecord, std::make_unique<std::string>("success"));
    expect("SCORE ON-CHAIN. Score 70, level 4, lives 0");
}

TEST(Shell, ShowsThatItWaitsForALookUpAndThenAllAsBefore) {
    CabinetFixture cabinet;
    ClickControl(cabinet.main, 1017);
    PumpMessages();
    for (const auto& [control, window, shown] :
         {std::tuple(1005, cabinet.main, 1005), {1017, shell.report, 1402}}) {
        const std::string before = cabinet.Text(1007);
        shell.driver.begin_check(control, "Checking your name...");
        EXPECT_EQ(cabinet.Text(1007), "Checking your name...");
        EXPECT_FALSE(ControlEnabled(window, shown));
        EXPECT_TRUE(PointerWaits());
        shell.driver.end_check();
        EXPECT_EQ(cabinet.Text(1007), before);
        EXPECT_TRUE(ControlEnabled(window, shown));
        EXPECT_FALSE(PointerWaits());
    }
}

TEST(Shell, FitsItsToolWindowsToASmallScreen) {
    const Rect work = {0, 0, 1366, 728};
    PretendMonitors({{{0, 0, 1366, 768}, work}});
    CabinetFixture cabinet;
    const struct {
        int button, close;
        WindowId Shell::*slot;
        Rect whole;  // of Close, on a screen that is large enough
    } kTools[] = {{1013, 1201, &Shell::help, {584, 772, 120, 36}},
                  {1012, 1102, &Shell::board, {400, 796, 110, 34}},
                  {1017, 1403, &Shell::report, {184, 568, 110, 36}}};
    for (const auto& tool : kTools) {
        SCOPED_TRACE(tool.button);
        const auto open = [&] {
            ClickControl(cabinet.main, tool.button);
            PumpMessages();
        };
        open();
        const WindowId window = shell.*tool.slot;
        const Rect rect = WindowRect(window);
        EXPECT_EQ(rect.MovedInside(work), rect);
        EXPECT_LE(rect.h, work.h);
        const Rect close = ControlRect(window, tool.close);
        EXPECT_LE(close.Bottom(), ClientSize(window).h);
        EXPECT_EQ(close.h < tool.whole.h, tool.button != 1017) << "the report fits";
        ClickControl(window, tool.close);
        PumpMessages();
        EXPECT_FALSE(WindowExists(window));
    }
    // The page is there whole, smaller: the last panel's edge stands above the button.
    ClickControl(cabinet.main, 1013);
    PumpMessages();
    const int below = ControlRect(shell.help, 1201).y - 4;
    EXPECT_EQ(PixelShown(shell.help, ClientSize(shell.help).w / 2, below), kBgColor);
}

TEST(Shell, IsNeverSmallerThanTheRunInProgressNeeds) {
    CabinetFixture cabinet;
    const Size floor = MinimumClientSize(cabinet.main);
    const Size frame = FrameSize(cabinet.main);
    EXPECT_EQ(floor, (Size{1200 - frame.w, 1040 - frame.h}));
    cabinet.Resize({2400, 1640});
    const int cell = shell.cell.w;
    ASSERT_EQ(cell, 74);  // (1640 - 256 - 52) / 18
    cabinet.BeginRun();
    EXPECT_EQ(ClientSize(cabinet.main), (Size{2400, 1640}));  // a run begins without moving an edge
    EXPECT_EQ(MinimumClientSize(cabinet.main), (Size{std::max(cell * 13 + 322, floor.w), 1640}));
    cabinet.Resize({2400, 1700});
    EXPECT_EQ(MinimumClientSize(cabinet.main).h, cell * 18 + 322);
    cabinet.Resize({1200, 1040});
    EXPECT_GE(ClientSize(cabinet.main).h, cell * 18 + 322);
    EXPECT_GE(ChildRect(shell.well).h, cell * 18 + 66);
    EXPECT_EQ(shell.run.game.cell_w, cell);  // the run keeps the size that it began with

    PretendMonitors({{{0, 0, 1024, 600}, {0, 0, 1024, 570}}});
    shell.run.mode = kModeAttract;
    RefreshLayout();
    EXPECT_EQ(MinimumClientSize(cabinet.main), (Size{1024 - frame.w, 570 - frame.h}));
}

TEST(Shell, TakesEachPrivateMessage) {
    CabinetFixture cabinet;
    const auto post = [&cabinet](int number, int64_t value, std::unique_ptr<Payload> payload) {
        EXPECT_TRUE(PostWindowMessage(cabinet.main, number, value, std::move(payload)));
        PumpMessages();
    };
    post(kMsgStatusText, 0, MakePayload(std::string("paying")));
    EXPECT_EQ(cabinet.Text(1007), "paying");
    post(kMsgConnectDone, 0, MakePayload(std::string("error: denied")));
    EXPECT_EQ(cabinet.Text(1007), "error: denied");
    post(kMsgConnectDone, 0, nullptr);
    EXPECT_EQ(cabinet.Text(1007), "Connect failed.");
    post(kMsgPayDone, kPayEnter, nullptr);
    EXPECT_EQ(cabinet.Text(1007), "Pay failed.");
    post(kMsgPayDone, kPayReport, MakePayload(std::string("success: ") + TestTxid(7)));
    EXPECT_EQ(cabinet.Text(1007), "Report sent. " + TestTxid(7));
    post(kMsgPotDone, 0, MakePayload(PotResult{123'456'789'012, ""}));
    EXPECT_EQ(cabinet.Text(1011), "Current weekly pot:  1234.56789012 BSV");
    post(kMsgPotDone, 0, MakePayload(PotResult{-1, "no answer"}));
    EXPECT_EQ(cabinet.Text(1011), "Current weekly pot:  (lookup miss)");
    post(kMsgPotDone, 0, MakePayload(PotResult{-1, ""}));
    EXPECT_EQ(cabinet.Text(1011), "Current weekly pot:  -");
    post(kMsgBalanceDone, 0, MakePayload(StatusResult{true, 95'000}));
    EXPECT_EQ(cabinet.Text(1004), "Pouch balance:  0.00095000 BSV");
    post(kMsgBalanceDone, 0, MakePayload(StatusResult{false, 95'000}));
    EXPECT_EQ(cabinet.Text(1004), "Pouch balance:  (WhatsOnChain miss)");
    post(kMsgBoardDone, 0, nullptr);
    EXPECT_FALSE(WindowExists(shell.board));

    // A payload of a foreign type, or with nobody to take it, is freed all the same.
    for (int number = kMsgConnectDone; number <= kMsgUpdateDone + 1; ++number) {
        post(number, 0, std::make_unique<CountedPayload>());
    }
    EXPECT_EQ(CountedPayload::alive, 0);
}

TEST(Shell, FormatsAmounts) {
    const std::pair<int64_t, const char*> cases[] = {{0, "0.00000000"},
                                                     {5'000, "0.00005000"},
                                                     {-5'000, "-0.00005000"},
                                                     {100'000'000, "1.00000000"},
                                                     {INT64_MAX, "92233720368.54775807"},
                                                     {INT64_MIN, "-92233720368.54775808"}};
    for (const auto& [satoshis, text] : cases) EXPECT_EQ(FormatBsv(satoshis), text);
}

TEST(Shell, ColoursItsTextsByPlaceAndState) {
    CabinetFixture cabinet;
    const auto style = [&cabinet](int id) {
        Message message{.type = MessageType::kTextStyle, .id = id};
        MainWindowProc(cabinet.main, message);
        return message.style;
    };
    EXPECT_EQ(style(1008).text, kTextColor);
    EXPECT_EQ(style(1008).background, kHeaderColor);
    EXPECT_EQ(style(1009).text, kMutedColor);
    EXPECT_EQ(style(1009).background, kHeaderColor);
    EXPECT_EQ(style(1003).text, kTextColor);
    EXPECT_EQ(style(1003).background, kBgColor);
    EXPECT_EQ(style(1011).text, kAccentColor);
    EXPECT_EQ(style(1007).text, kMutedColor);
    EXPECT_EQ(style(1004).text, kMutedColor);
    shell.build_latest = -1;
    EXPECT_EQ(style(1016).text, kMutedColor);
    shell.build_latest = kBuildNumber;
    EXPECT_EQ(style(1016).text, kAccentColor);
    EXPECT_FALSE(style(1016).hand);
    shell.update_available = true;
    EXPECT_EQ(style(1016).text, kWarnColor);
    EXPECT_TRUE(style(1016).hand);
    EXPECT_EQ(PixelShown(cabinet.main, 900, 85), kHeaderColor);
    EXPECT_EQ(PixelShown(cabinet.main, 900, 86), kBgColor);
}

TEST(Shell, TellsOfANewerBuildAndOpensThePageOnYes) {
    TakeOpenedAddresses();
    CabinetFixture cabinet;
    std::string asked;
    bool yes = false;
    AnswerMessageBoxes([&](std::string_view title, std::string_view text) {
        asked = std::string(title) + "|" + std::string(text);
        return yes;
    });
    const auto found = [&cabinet](int64_t value) {
        PostWindowMessage(cabinet.main, kMsgUpdateDone, value);
        PumpMessages();
    };
    found(0);
    EXPECT_EQ(cabinet.Text(1016), "Version 0.001");
    found(2);  // this very build
    EXPECT_EQ(asked, "");
    ClickControl(cabinet.main, 1016);
    PumpMessages();
    found(1501);
    EXPECT_EQ(
        asked,
        std::string("Brickfall update|A newer Brickfall is available.\n\nThis build:  0.001\nLatest:      "
                    "1.500\n\nOpen ") +
            kDownloadPageUrl + " to download it?");
    EXPECT_EQ(cabinet.Text(1016), std::string("Update available, ") + kDownloadPageUrl);
    EXPECT_GE(ControlRect(cabinet.main, 1016).w, MeasureText(theme.font_small, cabinet.Text(1016)).w);
    EXPECT_EQ(AccessibleRole(cabinet.main, 1016), "link");
    EXPECT_TRUE(TakeOpenedAddresses().empty());
    yes = true;
    found(1501);
    ClickControl(cabinet.main, 1016);
    PumpMessages();
    EXPECT_EQ(TakeOpenedAddresses(), (std::vector<std::string>{kDownloadPageUrl, kDownloadPageUrl}));
    AnswerMessageBoxes({});
}

TEST(Shell, OpensEachToolWindowOncePausesTheRunAndLeavesItPaused) {
    CabinetFixture cabinet;
    struct Tool {
        int button;
        WindowId Shell::*slot;
        const char* title;
    };
    for (const Tool& tool :
         {Tool{1015, &Shell::settings, "Settings"}, Tool{1013, &Shell::help, "Brickfall - Help"},
          Tool{1017, &Shell::report, "Report"}, Tool{1012, &Shell::board, "Weekly top scores"}}) {
        SCOPED_TRACE(tool.title);
        cabinet.BeginRun();
        cabinet.Tick(160);
        ClickControl(cabinet.main, tool.button);
        PumpMessages();
        const WindowId window = shell.*tool.slot;
        ASSERT_TRUE(WindowExists(window));
        EXPECT_EQ(WindowTitle(window), tool.title);
        EXPECT_TRUE(shell.run.game.paused);
        ClickControl(cabinet.main, tool.button);
        PumpMessages();
        EXPECT_EQ(shell.*tool.slot == window, tool.button != 1012);  // the board is made anew
        EXPECT_EQ(WindowExists(window), tool.button != 1012);

        PressKey(shell.*tool.slot, Key::kEscape);
        PumpMessages();
        EXPECT_FALSE(WindowExists(shell.*tool.slot));
        EXPECT_TRUE(shell.run.game.paused);
        FocusWindow(cabinet.main);
        PressKey(cabinet.main, Key::kP);
        EXPECT_FALSE(shell.run.game.paused);
    }
}

TEST(Shell, LoadsTheBoardOnceMoreWhenAskedDuringALoad) {
    CabinetFixture cabinet;
    shell.board_busy = true;  // a load is in flight
    StartBoardLoad();
    EXPECT_TRUE(shell.board_again);
    auto result = std::make_unique<BoardResult>();
    result->message = "No scores posted yet.";
    PostWindowMessage(cabinet.main, kMsgBoardDone, 0, MakePayload(std::move(result)));
    PumpMessages();
    EXPECT_FALSE(shell.board_again || shell.board_busy);
    EXPECT_TRUE(WindowExists(shell.board));
    EXPECT_EQ(cabinet.Text(1007), "No scores posted yet.");

    result = std::make_unique<BoardResult>();
    result->message = "No scores posted yet.";
    result->rows.emplace_back().score = 5;
    PostWindowMessage(cabinet.main, kMsgBoardDone, 0, MakePayload(std::move(result)));
    PumpMessages();
    EXPECT_EQ(cabinet.Text(1007), "Weekly board loaded.");
}

// As a payment holds it while the services are silent. Gives up after a while, so that a window that waits
// for the wallet fails its test and does not hang it.
class HeldWallet {
  public:
    HeldWallet() { held_.get_future().wait(); }
    bool Release() {  // false: somebody waited for it
        release_.set_value();
        thread_.join();
        return in_time_;
    }

  private:
    std::promise<void> held_, release_;
    bool in_time_ = false;
    std::thread thread_{[this] {
        const WalletLock lock(wallet_mutex);
        held_.set_value();
        in_time_ = release_.get_future().wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    }};
};

TEST(Shell, NeverWaitsForAWalletThatAPaymentHolds) {
    CabinetFixture cabinet(CabinetFixture::Wallet::kBound);
    const std::string address = cabinet.wallet->ReceiveAddress(0),
                      name = std::string("ada@") + kPaymailDomain;
    SetInlineWorkers(false);
    HeldWallet held;
    cabinet.BeginRun();
    for (const int button : {1015, 1013, 1017}) {
        ClickControl(cabinet.main, button);
        PumpMessages();
    }
    for (const WindowId tool : {shell.settings, shell.help, shell.report}) {
        EXPECT_TRUE(WindowExists(tool));
        DestroyWindow(tool);
    }
    PressKey(cabinet.main, Key::kP);
    cabinet.Tick(160);
    shell.run.game.score = 500;
    shell.run.game.game_over = true;
    FinishRun(shell.run, shell.driver.run);
    const auto& listed = ui_doc["week_scores"][0];
    EXPECT_EQ(listed.value("paymail", ""), name);
    EXPECT_EQ(listed.value("pay_addr", ""), address);

    auto board = std::make_unique<BoardResult>();
    board->rows.emplace_back().handle = "ada";
    PostWindowMessage(cabinet.main, kMsgBoardDone, 0, MakePayload(std::move(board)));
    PostWindowMessage(cabinet.main, kMsgBalanceDone, 0, MakePayload(StatusResult{true, 7}));
    PumpMessages();
    EXPECT_EQ(shell.board_view.my_key, "ada");
    PostWindowMessage(cabinet.main, kMsgPayDone, kPayReport, MakePayload(std::string("error: no coins")));
    PumpMessages();
    EXPECT_EQ(cabinet.Text(1003), "Wallet: " + name);
    EXPECT_EQ(cabinet.Text(1004), "Pouch balance:  0.00000000 BSV");
    EXPECT_EQ(cabinet.Text(1001), "Connected");
    EXPECT_TRUE(held.Release()) << "the main thread waited for the wallet";
    WaitForWorkers();
    PumpMessages();
}

TEST(Shell, ComesUpOnAStoreThatCannotBeWrittenAndWithoutALogo) {
    CabinetFixture cabinet;
    DestroyWindow(cabinet.main);
    PumpMessages();
    WriteFile(cabinet.data->Path() + "/Orvane", "a file where the store's folder belongs");
    LoadLogo("no picture");
    cabinet.main = OpenMainWindow();
    ShowWindow(cabinet.main);
    PumpMessages();
    EXPECT_EQ(cabinet.Text(1008), "Brickfall");
    ClickControl(cabinet.main, 1013);
    PumpMessages();
    EXPECT_TRUE(WindowExists(shell.help));
}

}  // namespace
}  // namespace brickfall
