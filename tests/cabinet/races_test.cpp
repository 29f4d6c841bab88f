// What the windows do while workers are at work. The thread sanitizer says whether they touch the same
// memory; what is looked at here holds whichever of them ends first.
#include <gtest/gtest.h>

#include <filesystem>

#include "base/workers.h"
#include "cabinet/report_window.h"
#include "cabinet/shell_driver.h"
#include "cabinet/shell_labels.h"
#include "cabinet/shell_state.h"
#include "cabinet/workers.h"
#include "deployment/deployment.h"
#include "deployment/sandbox_route.h"
#include "tests/cabinet/cabinet_fixture.h"
#include "tests/support/sealed_message.h"

namespace brickfall {
namespace {

using sandbox::FaultKind, sandbox::Service;

// Opens every window, uses it and closes it, once and then for as long as a worker is at work.
void DriveWhileWorkersRun(const CabinetFixture& cabinet) {
    do {
        for (const auto& [button, slot] : {std::pair(1015, &Shell::settings),
                                           {1013, &Shell::help},
                                           {1017, &Shell::report},
                                           {1012, &Shell::board}}) {
            if (slot != &Shell::board) cabinet.Click(button);  // else its load would never end
            const WindowId window = shell.*slot;
            if (!WindowExists(window)) continue;
            PressTab();
            for (const Key key : {Key::kSpace, Key::kRight, Key::kLeft}) {
                PressKey(window, key);
                ReleaseKey(window, key);
            }
            EXPECT_FALSE(GrabWindow(window).Empty());
            PressKey(window, Key::kEscape);
            PumpMessages();
        }
        cabinet.TapKey(Key::kP);
        FireTimer(cabinet.main, kHeartbeatTimer);
        GrabWindow(cabinet.main);
    } while (WorkersRunning() > 0);
    PumpMessages();
    for (const auto slot : {&Shell::settings, &Shell::help, &Shell::report, &Shell::board})
        DestroyWindow(shell.*slot);
}

TEST(Races, EveryWindowIsDrivenWhileEveryWorkerSucceedsFailsOrWaits) {
    const WorkingFolder folder;  // where the program keeps key files
    std::filesystem::create_directory("userinfo");
    CabinetFixture cabinet(CabinetFixture::Wallet::kBound);
    sandbox::Sandbox& box = cabinet.services.box;
    sandbox::PublishedIdentity ada;
    ada.alias = "ada";
    ada.pubkey = cabinet.wallet->IdentityKey();
    ada.address = cabinet.wallet->IdentityAddress();
    box.Publish(ada);
    box.SeedBoard(kClockStart);
    ASSERT_TRUE(box.AppointArchitect("userinfo"));
    for (int i = 0; i < 8; ++i) box.Fund(cabinet.wallet->ReceiveAddress(0), 20'000);
    box.Mine();
    cabinet.wallet->clock.AdvanceMs(60'000);
    RefreshWalletLabels();  // which coins there are is known
    AnswerMessageBoxes([](std::string_view, std::string_view) { return true; });
    SetInlineWorkers(false);
    const auto paid = [&box, seeded = box.BalanceOf(kArcadeHouseAddress)] {
        return box.BalanceOf(kArcadeHouseAddress) - seeded;
    };

    const struct {
        const char* what;
        std::optional<FaultKind> fault;
    } weathers[] = {{"all answer", {}},
                    {"all refuse", FaultKind::kReply},
                    {"all hang up", FaultKind::kDrop},
                    {"none answers", FaultKind::kNoAnswer},
                    {"all answer again", {}}};
    int64_t runs = 0;
    for (const auto& [what, fault] : weathers) {
        SCOPED_TRACE(what);
        SetConnectRoute({box.ConnectTo(), box.CaFile(), fault == FaultKind::kNoAnswer ? 500 : 1});
        for (const Service service :
             {Service::kChain, Service::kOrdinals, Service::kContent, Service::kArc, Service::kRelay,
              Service::kIndexer, Service::kPaymail, Service::kDownload}) {
            if (fault) cabinet.services.Disturb(service, *fault);
        }
        const int64_t before = paid();
        cabinet.Click(1012);
        StartPotWorker(cabinet.main);
        StartUpdateWorker(cabinet.main);
        RefreshWalletLabels();
        cabinet.Click(1005);
        DriveWhileWorkersRun(cabinet);
        const bool plays = shell.run.mode == kModePlaying;
        runs += plays;
        EXPECT_EQ(plays, !fault) << cabinet.Text(1007);
        EXPECT_EQ(paid() - before, plays ? 2'000 : 0);

        if (plays) {
            shell.run.game.game_over = true;
            FinishRun(shell.run, shell.driver.run);
        }
        if (runs > 0) cabinet.Click(1006);
        DriveWhileWorkersRun(cabinet);
        EXPECT_EQ(shell.run.mode == kModeRecorded, runs > 0 && !shell.run.record_txid.empty());
        EXPECT_TRUE(fault || shell.run.mode == kModeRecorded) << cabinet.Text(1007);

        cabinet.Click(1017);
        PasteText("the ball went through the wall");
        Click(shell.report, kControlSendReport);
        DriveWhileWorkersRun(cabinet);
        EXPECT_FALSE(shell.run.busy || shell.board_busy);
        box.ClearFaults();
    }
    EXPECT_EQ(paid(), 2'000 * runs);
    EXPECT_EQ(box.TotalFunded(), box.TotalUnspent() + box.TotalFees());
    AnswerMessageBoxes({});
    WaitForWorkers();
}

}  // namespace
}  // namespace brickfall
