// The line above the status line: where it stands, and how it counts while services are waited for.
#include "cabinet/explanation_line.h"

#include <gtest/gtest.h>

#include "cabinet/explanations.h"
#include "cabinet/private_messages.h"
#include "cabinet/shell_layout.h"
#include "cabinet/theme.h"
#include "cabinet/well.h"
#include "tests/cabinet/cabinet_fixture.h"
#include "wallet/link/status_refresh.h"

namespace brickfall {
namespace {

std::string Line() { return ControlText(shell.main, kControlExplanation); }

TEST(ExplanationLine, StandsBelowTheFieldOrNotAtAllAndIsNeverCut) {
    CabinetFixture cabinet;
    for (const Explanation& row : Explanations()) {
        StatusContext context;
        context.asked = kPayRecord;
        std::string text = ExplanationText(row, context);
        if (!row.service.empty()) text += " Waiting for " + std::string(row.service) + ": 100 s";
        EXPECT_LE(MeasureText(theme.font_small, text).w, 1'200 - 32) << text;
    }
    for (const Size client : {Size{1320, 1300}, {1200, 1040}, {3840, 2160}}) {
        cabinet.Resize(client);
        EXPECT_EQ(ControlRect(cabinet.main, kControlExplanation),
                  (Rect{16, client.h - 98, client.w - 32, 20}));
        EXPECT_LE(kWellAt.y + kFieldTop + shell.cell.h * 18 + 10, client.h - 98) << "the field's frame";
    }
    Message style{.type = MessageType::kTextStyle, .id = kControlExplanation};
    MainWindowProc(cabinet.main, style);
    EXPECT_TRUE(style.style.text == kMutedColor && style.style.background == kBgColor);
    SetStatus("Back.");
    EXPECT_EQ(ControlRect(cabinet.main, kControlExplanation), Rect{}) << "nothing to say";
    PretendMonitors({{{0, 0, 1024, 600}, {0, 0, 1024, 570}}});
    RefreshLayout();
    cabinet.Resize({1000, 540});
    SetStatus("Paused.");
    EXPECT_EQ(ControlRect(cabinet.main, kControlExplanation), Rect{}) << "no room";
    cabinet.BeginRun();
    EXPECT_EQ(Line(), "");
}

TEST(ExplanationLine, CountsTheSecondsAndNamesWhoIsWaitedFor) {
    CabinetFixture cabinet;
    const auto seconds_pass = [&](int64_t count) {
        cabinet.own_clock->AdvanceMs(count * 1'000);
        FireTimer(cabinet.main, kSecondsTimer);
    };
    EXPECT_FALSE(TimerRunning(cabinet.main, kSecondsTimer));
    SetBusy(shell.run, shell.driver, true);
    SetStatus("Waiting for Pouch to approve...");
    seconds_pass(7);
    SetStatus("Waiting for Pouch to approve this app...\n");
    seconds_pass(5);
    EXPECT_EQ(Line(), "Approve this cabinet in Pouch's window within a minute. Waiting for Pouch: 12 s");
    SetStatus("Already working...");
    EXPECT_EQ(Line(), "Waiting for Pouch: 12 s") << "still";
    shell.board_busy = true;
    SetStatus("Loading this week's board...");
    seconds_pass(1);
    EXPECT_EQ(Line(), "Waiting for the board's indexer and WhatsOnChain: 1 s");
    cabinet.Post(kMsgConnectDone, 0, MakePayload<std::string>("error: connect denied in Pouch."));
    EXPECT_EQ(Line(), "Nothing has changed. Press Connect again when you want to approve it.");
    EXPECT_TRUE(TimerRunning(cabinet.main, kSecondsTimer)) << "the board is not there yet";
    shell.board_busy = false;
    SetStatus("Weekly board loaded.");
    EXPECT_EQ(Line(), "");
    EXPECT_FALSE(TimerRunning(cabinet.main, kSecondsTimer));
}

TEST(ExplanationLine, TellsOfASilentNetworkWhatWasNotSpent) {
    CabinetFixture cabinet(CabinetFixture::Wallet::kBound);
    EXPECT_EQ(Line(), "Press Play to start a run: 5,000 sats, and a fee of some 150.");
    cabinet.services.Disturb(sandbox::Service::kChain, sandbox::FaultKind::kDrop);
    AnswerMessageBoxes([](std::string_view, std::string_view) { return true; });
    cabinet.Click(1005);
    AnswerMessageBoxes({});
    EXPECT_EQ(cabinet.Text(1007), "error: you have 0 in your Pouch wallet.");
    EXPECT_EQ(cabinet.Text(1004), "Pouch balance:  0.00000000 BSV") << "as it was read before";
    EXPECT_EQ(Line(),
              "No run has begun. Nothing could be read; nothing was spent. Try again when you are online.");
    SetStatus("Back.");
    EXPECT_EQ(Line(),
              "WhatsOnChain could not be read: the pot is not known. It is read again after each payment.");
    cabinet.Post(kMsgBalanceDone, 0, MakePayload(StatusResult{false, -1}));
    EXPECT_EQ(Line(), "WhatsOnChain could not be read: the balance is not known. Nothing is lost by that.");
}

}  // namespace
}  // namespace brickfall
