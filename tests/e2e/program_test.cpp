// The program itself: its single instance, and its end while work is in flight.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>

#include "base/files.h"
#include "platform/desktop.h"
#include "tests/e2e/desktop_robot.h"
#include "tests/support/child_process.h"
#include "tests/support/wallet_fixture.h"

namespace brickfall {
namespace {

constexpr char kProgram[] = BRICKFALL_BINARY_DIR "/cabinet/brickfall";
constexpr char kMainTitle[] = "Brickfall";

TEST(Program, RaisesTheFirstOnASecondStartAndEndsCleanWithWorkInFlight) {
    SandboxFixture services;
    WalletFixture wallet;
    ::setenv("BRICKFALL_SANDBOX_CONNECT", services.box.ConnectTo().c_str(), 1);
    ::setenv("BRICKFALL_SANDBOX_CA", services.box.CaFile().c_str(), 1);
    // Every service takes its requests and never answers: pot, balance, update and board stay in flight.
    sandbox::Fault silence;
    silence.kind = sandbox::FaultKind::kNoAnswer;
    for (const auto service :
         {sandbox::Service::kChain, sandbox::Service::kOrdinals, sandbox::Service::kIndexer,
          sandbox::Service::kPaymail, sandbox::Service::kDownload}) {
        services.box.AddFault(service, silence);
    }
    ChildProcess program(kProgram, {});
    ASSERT_TRUE(WaitFor("the program's window", [] { return WindowIsUp(kMainTitle); }));
    RunFor(300);

    ChildProcess second(kProgram, {});
    EXPECT_EQ(second.Wait(), 0);

    Click(kMainTitle, {164 + 85, 157});  // the board
    ASSERT_TRUE(WaitFor("the board's request",
                        [&services] { return !services.box.Requests(sandbox::Service::kIndexer).empty(); }));
    const auto before = std::chrono::steady_clock::now();
    PressKeys("alt+F4");
    EXPECT_EQ(program.Wait(), 0);
    const auto took = std::chrono::steady_clock::now() - before;
    EXPECT_LT(std::chrono::duration_cast<std::chrono::milliseconds>(took).count(), 3'000);
    EXPECT_TRUE(FileExists(wallet.StorePath("/brickfall_ui.json")));
    services.box.ClearFaults();
}

TEST(Program, SaysSoWithoutADisplay) {
    ChildProcess program(
        "/bin/sh", {"-c", std::string("env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM ") + kProgram +
                              " 2>&1; echo code $?"});
    EXPECT_EQ(program.ReadLine(), "brickfall: there is no display to open a window on");
    EXPECT_EQ(program.ReadLine(), "code 1");
}

}  // namespace
}  // namespace brickfall
