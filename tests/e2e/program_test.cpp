// The program itself: its single instance, and its end while work is in flight.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "base/files.h"
#include "deployment/deployment.h"
#include "platform/desktop.h"
#include "tests/e2e/desktop_robot.h"
#include "tests/support/child_process.h"
#include "tests/support/wallet_fixture.h"

namespace brickfall {
namespace {

constexpr char kProgram[] = BRICKFALL_BINARY_DIR "/cabinet/brickfall";
constexpr char kMainTitle[] = "Brickfall";
// None of the unanswered requests would be over by then. The time that it takes is printed.
constexpr int kWaitsForNothingMs = 3'000;

TEST(Program, RaisesTheFirstOnASecondStartAndEndsCleanWithWorkInFlight) {
    using enum sandbox::Service;
    SandboxFixture services;
    WalletFixture wallet;
    services.box.Fund(wallet.ReceiveAddress(0), 100'000);
    ::setenv("BRICKFALL_SANDBOX_CONNECT", services.box.ConnectTo().c_str(), 1);
    ::setenv("BRICKFALL_SANDBOX_CA", services.box.CaFile().c_str(), 1);
    // Pot, balance, update check and board stay in flight, and the payment that is under way.
    constexpr auto kNoAnswer = sandbox::FaultKind::kNoAnswer;
    services.Disturb(kChain, kNoAnswer, kArcadePotAddress);
    services.Disturb(kPaymail, kNoAnswer, "/quota/");
    for (const sandbox::Service service : {kDownload, kIndexer, kRelay}) services.Disturb(service, kNoAnswer);
    ChildProcess program(kProgram, {});
    ASSERT_TRUE(WaitFor("the program's window", [] { return WindowIsUp(kMainTitle); }));
    RunFor(300);

    ChildProcess second(kProgram, {});
    EXPECT_EQ(second.Wait(), 0);

    const auto asked = [&services](sandbox::Service service, const char* what) {
        return WaitFor(what, [&] { return !services.box.Requests(service).empty(); });
    };
    Click(kMainTitle, {164 + 85, 157});  // the board
    ASSERT_TRUE(asked(kIndexer, "the board's request"));
    AnswerBox(kMainTitle, "Return");    // pay
    Click(kMainTitle, {428 + 75, 39});  // play
    ASSERT_TRUE(asked(kRelay, "the payment"));
    ASSERT_TRUE(asked(kDownload, "the update check"));
    const auto before = std::chrono::steady_clock::now();
    PressKeys("alt+F4");
    EXPECT_EQ(program.Wait(), 0);
    const auto took =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - before);
    std::printf("closed in %lld ms\n", static_cast<long long>(took.count()));
    EXPECT_LT(took.count(), kWaitsForNothingMs);
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
