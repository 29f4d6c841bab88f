#include "cabinet/shell.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <nlohmann/json.hpp>
#include <tuple>

#include "base/text.h"
#include "base/workers.h"
#include "board/board_load.h"
#include "cabinet/controls.h"
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

TextStyle StyleOf(const CabinetFixture& cabinet, int id) {
    Message message{.type = MessageType::kTextStyle, .id = id};
    MainWindowProc(cabinet.main, message);
    return message.style;
}

TEST(Shell, ComesUpWithEachControlInItsPlaceAndKeepsItThereAtEverySize) {
    CabinetFixture cabinet;
    EXPECT_EQ(WindowTitle(cabinet.main), "Brickfall");
    const int line = std::max(MeasureText(theme.font_small, "Wallet: not connected").w + 8, 80);
    // The cell is worked out by hand from the layout's rule.
    for (const auto& [client, cell] :
         {std::pair(Size{1320, 1300}, 55), {Size{1200, 1040}, 40}, {Size{3840, 2160}, 102}}) {
        SCOPED_TRACE(client.w);
        cabinet.Resize(client);
        ASSERT_EQ(ClientSize(cabinet.main), client);
        const auto [w, h] = client;
        const struct {
            int id;
            Rect rect;
            const char* text;
            Color color = {}, background = kBgColor;  // of a text
        } controls[] = {
            {1008, {96, 14, 264, 36}, "Brickfall", kTextColor, kHeaderColor},
            {1009, {96, 50, 220, 20}, "Orvane Arcade", kMutedColor, kHeaderColor},
            {1003, {16, 92, line, 22}, "Wallet: not connected", kTextColor},
            {1004, {line + 36, 92, 360, 22}, "Pouch balance:  -", kMutedColor},  // follows the line's end
            {1011, {16, 116, w - 32, 22}, "Current weekly pot:  0.00000000 BSV", kAccentColor},
            {1007, {16, h - 74, w - 32, 20}, "Connect Pouch, then Play.", kMutedColor},
            {1016, {16, h - 42, 240, 20}, "Version 0.001", kAccentColor},
            {1015, {376, 20, 44, 38}, ""},
            {1005, {428, 22, 150, 34}, "Play  5000 sats"},
            {1001, {586, 22, 110, 34}, "Connect"},
            {1002, {704, 22, 100, 34}, "Unbind"},
            {1006, {16, 140, 140, 34}, "Record score"},
            {1012, {164, 140, 170, 34}, "Weekly top scores"},
            {1013, {342, 140, 90, 34}, "Help"},
            {1017, {440, 140, 90, 34}, "Report"},
            {1014, {(w - 110) / 2, h - 50, 110, 34}, "Close"},
        };
        for (const auto& control : controls) {
            SCOPED_TRACE(control.id);
            EXPECT_EQ(ControlRect(cabinet.main, control.id), control.rect);
            EXPECT_EQ(cabinet.Text(control.id), control.text);
            if (control.color == Color{}) {
                EXPECT_EQ(ControlEnabled(cabinet.main, control.id), control.id != 1006);
                EXPECT_EQ(AccessibleName(cabinet.main, control.id),
                          control.id == 1015 ? "Settings" : control.text);
            } else {
                EXPECT_EQ(StyleOf(cabinet, control.id).text, control.color);
                EXPECT_EQ(StyleOf(cabinet, control.id).background, control.background);
            }
        }
        EXPECT_EQ(ChildRect(shell.well), (Rect{16, 178, w - 32, h - 256}));
        EXPECT_TRUE(shell.cell.w == cell && shell.cell.h == cell) << shell.cell.w;
    }
    EXPECT_EQ(PixelShown(cabinet.main, 900, 85), kHeaderColor);
    EXPECT_EQ(PixelShown(cabinet.main, 900, 86), kBgColor);
}

TEST(Shell, ReadsTheWellOutToAScreenReader) {
    CabinetFixture cabinet;
    RunControl& run = shell.run;
    const auto expect = [&](const std::string& state) {
        EXPECT_EQ(AccessibleDescription(shell.well),
                  state + ". Left and Right move the paddle, Space serves, P pauses");
    };
    expect("INSERT 5000 SATS");
    cabinet.BeginRun();
    run.game.score = 70;
    run.game.lives = 2;
    run.game.level = 4;
    cabinet.Tick(16);
    expect("Score 70, level 4, lives 2");
    PressKey(cabinet.main, Key::kP);
    expect("PAUSED. Score 70, level 4, lives 2");
    run.game.paused = false;
    run.game.game_over = true;
    FinishRun(run, shell.driver.run);
    expect("GAME OVER. Score 70, level 4, lives 2");
    OnPayResult(run, shell.driver, kPayRecord, std::make_unique<std::string>("success"));
    expect("SCORE ON-CHAIN. Score 70, level 4, lives 2");
}

TEST(Shell, TellsWhatARecordCostsWhileARunIsThere) {
    CabinetFixture cabinet;
    std::vector<InputEvent>& events = shell.run.tape.events;
    const auto spoken_with = [&](std::size_t count) {
        events.resize(count);
        cabinet.Tick(16);
        return AccessibleDescription(cabinet.main, kControlRecord);
    };
    const auto fee_line = [](int64_t fee) { return "Fee about " + Grouped(fee) + " sats"; };
    EXPECT_EQ(spoken_with(5), ToolTip(cabinet.main, kControlRecord));
    EXPECT_EQ(shell.fee.text, "");
    cabinet.BeginRun();
    const std::string none = spoken_with(0);
    const int64_t least = std::stoll(none.substr(std::string("Fee about ").size()));
    EXPECT_EQ(none, fee_line(least));

    // An event is ten digits of the row, a satoshi each. The row is 135 bytes shorter than a transaction with
    // one input and change; from 65,536 on, its own length and that of its script take two bytes more.
    const auto to_warning = static_cast<std::size_t>((5'000 - least) / 10);
    const auto to_limit = static_cast<std::size_t>((65'535 + 135 - least) / 10);
    for (const std::size_t count : {to_warning, to_warning + 1, to_limit, to_limit + 1}) {
        int64_t fee = least + static_cast<int64_t>(count) * 10;
        const int64_t row_bytes = fee - 135;
        for (const int64_t length : {row_bytes, row_bytes + 5}) fee += length > 65'535 ? 2 : 0;
        EXPECT_EQ(spoken_with(count), fee_line(fee) + (count > to_limit ? ", too long for the board" : ""));
        EXPECT_EQ(shell.fee.warns, count > to_warning);
    }
    // Three inputs instead of one, of 41 bytes each.
    EXPECT_EQ(spoken_with(1), fee_line(least + 10));
    cabinet.Post(kMsgBalanceDone, 0, MakePayload(StatusResult{true, 7, {least - 50, 40, 10'000}}));
    EXPECT_EQ(spoken_with(1), fee_line(least + 10 + 2 * 41));

    shell.run.game.game_over = true;
    FinishRun(shell.run, shell.driver.run);
    EXPECT_EQ(spoken_with(2), fee_line(least + 10 + 2 * 41)) << "the end was foreseen";
    OnPayResult(shell.run, shell.driver, kPayRecord, std::make_unique<std::string>("success"));
    cabinet.Post(kMsgBalanceDone, 0, MakePayload(StatusResult{true, 7, {10'000}}));
    EXPECT_EQ(spoken_with(2), fee_line(least + 10 + 2 * 41)) << "it is paid";
}

TEST(Shell, ShowsThatItWaitsForALookUpAndThenAllAsBefore) {
    CabinetFixture cabinet;
    cabinet.Click(1017);
    for (const auto& [control, window, shown] :
         {std::tuple(1005, cabinet.main, 1005), {1017, shell.report, 1402}}) {
        shell.driver.begin_check(control, "Checking your name...");
        EXPECT_EQ(cabinet.Text(1007), "Checking your name...");
        EXPECT_TRUE(PointerWaits() && !ControlEnabled(window, shown)) << control;
        shell.driver.end_check();
        EXPECT_EQ(cabinet.Text(1007), "Connect Pouch, then Play.");
        EXPECT_TRUE(!PointerWaits() && ControlEnabled(window, shown)) << control;
    }
}

TEST(Shell, TellsOfEveryButtonWhatItDoesAndCosts) {
    CabinetFixture cabinet;
    const auto expect_tips = [](WindowId window, int first, int last) {
        int buttons = 0;
        for (int id = first; id <= last; ++id) {
            if (AccessibleRole(window, id) != "button") continue;
            ++buttons;
            EXPECT_NE(ToolTip(window, id), "") << id;
            EXPECT_EQ(AccessibleDescription(window, id), ToolTip(window, id)) << id;
        }
        return buttons;
    };
    EXPECT_EQ(expect_tips(cabinet.main, 1001, 1018), 9);
    EXPECT_EQ(ToolTip(cabinet.main, 1005),
              "Starts a run: 2,000 sats to the house, 3,000 to this week's pot, and a fee of some 150.");
    for (const auto& [control, slot, count] : {std::tuple(1012, &Shell::board, 1),
                                               {1013, &Shell::help, 1},
                                               {1015, &Shell::settings, 3},
                                               {1017, &Shell::report, 2}}) {
        cabinet.Click(control);
        EXPECT_EQ(expect_tips(shell.*slot, 1101, 1410), count) << control;
    }
}

TEST(Shell, FitsItsToolWindowsToASmallScreen) {
    const Rect work = {0, 0, 1366, 728};
    PretendMonitors({{{0, 0, 1366, 768}, work}});
    CabinetFixture cabinet;
    // Close is so high on a screen that is large enough, as it is for the report.
    for (const auto& [button, close_id, slot, whole_h] : {std::tuple(1012, 1102, &Shell::board, 34),
                                                          {1017, 1403, &Shell::report, 36},
                                                          {1013, 1201, &Shell::help, 36}}) {
        SCOPED_TRACE(button);
        cabinet.Click(button);
        const WindowId window = shell.*slot;
        const Rect rect = WindowRect(window), close = ControlRect(window, close_id);
        EXPECT_EQ(rect.MovedInside(work), rect);
        EXPECT_LE(rect.h, work.h);
        EXPECT_LE(close.Bottom(), ClientSize(window).h);
        EXPECT_EQ(close.h, whole_h) << "nothing is smaller";
        // What does not fit scrolls away above the button.
        EXPECT_EQ(PixelShown(window, ClientSize(window).w / 2, close.y - 4), kBgColor);
        Click(window, close_id);
        EXPECT_FALSE(WindowExists(window));
    }
}

TEST(Shell, IsNeverSmallerThanTheRunInProgressNeeds) {
    CabinetFixture cabinet;
    const Size floor = MinimumClientSize(cabinet.main), frame = FrameSize(cabinet.main);
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
    const auto text = MakePayload<std::string>;
    const auto balance = [](bool ok) { return MakePayload(StatusResult{ok, 95'000}); };
    struct {
        int number;
        int64_t value;
        std::unique_ptr<Payload> payload;
        int line;
        std::string shown;
    } messages[] = {
        {kMsgStatusText, 0, text("paying"), 1007, "paying"},
        {kMsgConnectDone, 0, text("error: denied"), 1007, "error: denied"},
        {kMsgConnectDone, 0, nullptr, 1007, "Connect failed."},
        {kMsgPayDone, kPayEnter, nullptr, 1007, "Pay failed."},
        {kMsgPayDone, kPayReport, text("success: " + TestTxid(7)), 1007, "Report sent. " + TestTxid(7)},
        {kMsgPotDone, 0, MakePayload(PotResult{123'456'789'012, ""}), 1011,
         "Current weekly pot:  1234.56789012 BSV"},
        {kMsgPotDone, 0, MakePayload(PotResult{-1, "no answer"}), 1011, "Current weekly pot:  (lookup miss)"},
        {kMsgPotDone, 0, MakePayload(PotResult{-1, ""}), 1011, "Current weekly pot:  -"},
        {kMsgBalanceDone, 0, balance(true), 1004, "Pouch balance:  0.00095000 BSV"},
        {kMsgBalanceDone, 0, balance(false), 1004, "Pouch balance:  (WhatsOnChain miss)"},
    };
    for (auto& [number, value, payload, line, shown] : messages) {
        cabinet.Post(number, value, std::move(payload));
        EXPECT_EQ(cabinet.Text(line), shown);
    }
    cabinet.Post(kMsgBoardDone);
    EXPECT_FALSE(WindowExists(shell.board));
    const std::pair<int64_t, const char*> amounts[] = {
        {-5'000, "-0.00005000"}, {100'000'000, "1.00000000"}, {INT64_MIN, "-92233720368.54775808"}};
    for (const auto& [satoshis, amount] : amounts) EXPECT_EQ(FormatBsv(satoshis), amount);

    // A payload of a foreign type, or with nobody to take it, is freed all the same.
    const auto foreign = std::make_shared<int>();
    for (int number = kMsgConnectDone; number <= kMsgUpdateDone + 1; ++number) {
        cabinet.Post(number, 0, MakePayload(foreign));
    }
    EXPECT_EQ(foreign.use_count(), 1);
}

TEST(Shell, MakesItsStatusLineStandOutSpeaksItAndLetsItBeCopied) {
    CabinetFixture cabinet;
    TakeSpoken();
    const std::string hostile = "error: <b>" + std::string(900, 'x') + "</b>";
    const struct {
        std::string text;
        Color at_once, later;
    } changes[] = {{"paying", kTextColor, kMutedColor},
                   {hostile, kWarnColor, kWarnColor},
                   {"Score recorded.", kTextColor, kMutedColor}};
    std::vector<std::string> spoken;
    for (const auto& [text, at_once, later] : changes) {
        cabinet.Post(kMsgStatusText, 0, MakePayload(text));
        EXPECT_EQ(StyleOf(cabinet, 1007).text, at_once) << text;
        FireTimer(cabinet.main, kStatusTimer);
        EXPECT_FALSE(TimerRunning(cabinet.main, kStatusTimer));
        EXPECT_EQ(StyleOf(cabinet, 1007).text, later) << text;
        GrabWindow(cabinet.main);
        EXPECT_EQ(ToolTip(cabinet.main, 1007), text == hostile ? hostile : "");
        spoken.push_back(text);
    }
    EXPECT_EQ(TakeSpoken(), spoken);
    cabinet.Click(1007);
    EXPECT_EQ(StyleOf(cabinet, 1007).text, kTextColor);
    cabinet.Click(1017);
    PressControl('V');
    EXPECT_EQ(ControlText(shell.report, 1401), "Score recorded.");
}

TEST(Shell, ShowsTheRecordsTransactionIdUntilTheNextRunAndCopiesItWhole) {
    CabinetFixture cabinet;
    const std::string id = "0123456789" + std::string(44, 'a') + "fedcba9876";
    cabinet.BeginRun();
    shell.run.game.game_over = true;
    FinishRun(shell.run, shell.driver.run);
    EXPECT_EQ(ControlRect(shell.well, kControlTxid), Rect{});
    cabinet.Post(kMsgPayDone, kPayRecord, MakePayload("success: " + id));
    EXPECT_EQ(ControlText(shell.well, kControlTxid), "txid  01234567…dcba9876");
    EXPECT_EQ(AccessibleName(shell.well, kControlTxid), "Transaction id " + id);
    const int side = 13 * shell.run.game.cell_w + 62;
    EXPECT_EQ(ControlRect(shell.well, kControlTxid), (Rect{side, 274, 204, 20}));
    EXPECT_GE(204, MeasureText(theme.font_small, ControlText(shell.well, kControlTxid)).w);
    brickfall::Click(shell.well, kControlTxid);
    EXPECT_EQ(cabinet.Text(1007), "Transaction id copied.");
    cabinet.Click(1017);
    PressControl('V');
    EXPECT_EQ(ControlText(shell.report, 1401), id);
    cabinet.BeginRun();
    cabinet.Tick(16);
    EXPECT_EQ(ControlRect(shell.well, kControlTxid), Rect{});
}

TEST(Shell, TellsOfANewerBuildAndOpensThePageOnYes) {
    using Texts = std::vector<std::string>;
    TakeOpenedAddresses();
    CabinetFixture cabinet;
    Texts asked;
    bool yes = false;
    AnswerMessageBoxes([&](std::string_view title, std::string_view text) {
        asked.push_back(std::string(title) + "|" + std::string(text));
        return yes;
    });
    const auto look = [&cabinet] {
        const TextStyle style = StyleOf(cabinet, 1016);
        return std::tuple(cabinet.Text(1016), style.text, style.hand, AccessibleRole(cabinet.main, 1016));
    };
    cabinet.Post(kMsgUpdateDone, 0);
    EXPECT_EQ(look(), std::tuple("Version 0.001", kMutedColor, false, "text"));
    cabinet.Post(kMsgUpdateDone, kBuildNumber + 1);  // this very build
    EXPECT_EQ(look(), std::tuple("Version 0.001", kAccentColor, false, "text"));
    cabinet.Click(1016);
    EXPECT_EQ(asked, Texts{});
    cabinet.Post(kMsgUpdateDone, 1501);
    EXPECT_EQ(asked, Texts{"Brickfall update|A newer Brickfall is available.\n\nThis build:  0.001\n"
                           "Latest:      1.500\n\nOpen " +
                           std::string(kDownloadPageUrl) + " to download it?"});
    const std::string available = std::string("Update available, ") + kDownloadPageUrl;
    EXPECT_EQ(look(), std::tuple(available, kWarnColor, true, "link"));
    EXPECT_GE(ControlRect(cabinet.main, 1016).w, MeasureText(theme.font_small, available).w);
    EXPECT_EQ(TakeOpenedAddresses(), Texts{});
    yes = true;
    cabinet.Post(kMsgUpdateDone, 1501);
    cabinet.Click(1016);
    EXPECT_EQ(TakeOpenedAddresses(), (Texts{kDownloadPageUrl, kDownloadPageUrl}));
    AnswerMessageBoxes({});
}

TEST(Shell, OpensEachToolWindowOncePausesTheRunAndLeavesItPaused) {
    CabinetFixture cabinet;
    for (const auto& [button, slot, title] : {std::tuple(1015, &Shell::settings, "Settings"),
                                              {1013, &Shell::help, "Brickfall - Help"},
                                              {1017, &Shell::report, "Report"},
                                              {1012, &Shell::board, "Weekly top scores"}}) {
        SCOPED_TRACE(title);
        cabinet.BeginRun();
        cabinet.Tick(160);
        cabinet.Click(button);
        const WindowId window = shell.*slot;
        ASSERT_TRUE(WindowExists(window));
        EXPECT_EQ(WindowTitle(window), title);
        EXPECT_TRUE(shell.run.game.paused);
        cabinet.Click(button);
        EXPECT_EQ(shell.*slot == window, button != 1012);  // the board is made anew
        EXPECT_EQ(WindowExists(window), button != 1012);

        PressKey(shell.*slot, Key::kEscape);
        PumpMessages();
        EXPECT_FALSE(WindowExists(shell.*slot));
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
    result->rows.emplace_back();
    cabinet.Post(kMsgBoardDone, 0, MakePayload(std::move(result)));
    EXPECT_FALSE(shell.board_again || shell.board_busy);
    EXPECT_EQ(cabinet.Text(1007), "No scores posted yet.") << "of the second load";
}

TEST(Shell, NeverWaitsForAWalletThatAPaymentHolds) {
    CabinetFixture cabinet(CabinetFixture::Wallet::kBound);
    const std::string name = std::string("ada@") + kPaymailDomain,
                      address = cabinet.wallet->ReceiveAddress(0);
    SetInlineWorkers(false);
    // As a payment holds it while the services are silent. Gives up after a while, so that a window that
    // waits for the wallet fails its test and does not hang it.
    std::promise<void> held, release;
    auto payment = std::async(std::launch::async, [&] {
        const WalletLock lock(wallet_mutex);
        held.set_value();
        return release.get_future().wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    });
    held.get_future().wait();
    cabinet.BeginRun();
    for (const int button : {1015, 1013, 1017}) cabinet.Click(button);
    for (const WindowId tool : {shell.settings, shell.help, shell.report}) DestroyWindow(tool);
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
    cabinet.Post(kMsgBoardDone, 0, MakePayload(std::move(board)));
    EXPECT_EQ(cabinet.Text(1007), "Weekly board loaded.");
    EXPECT_EQ(shell.board_view.my_key, "ada");
    cabinet.Post(kMsgBalanceDone, 0, MakePayload(StatusResult{true, 7}));
    cabinet.Post(kMsgPayDone, kPayReport, MakePayload(std::string("error: no coins")));
    EXPECT_EQ(cabinet.Text(1003) + cabinet.Text(1004), "Wallet: " + name + "Pouch balance:  0.00000000 BSV");
    release.set_value();
    EXPECT_TRUE(payment.get()) << "the main thread waited for the wallet";
    WaitForWorkers();
    PumpMessages();
}

}  // namespace
}  // namespace brickfall
