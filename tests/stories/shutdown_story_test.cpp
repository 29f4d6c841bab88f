// A cabinet that is closed at the worst moments: its main function returns while workers are in the middle of
// a payment, a refresh, a poll or the submit behind a payment. Each time it ends at once with the exit code
// of its own, which a crash or a sanitizer's report would replace.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/clock.h"
#include "tests/support/child_process.h"
#include "tests/support/wallet_fixture.h"

namespace brickfall {
namespace {

using sandbox::Fault;
using sandbox::FaultKind;
using sandbox::Service;

const std::string kProgram = BRICKFALL_BINARY_DIR "/tests/shutdown_program";
constexpr int kExitCode = 37;

class ShutdownStory : public testing::Test {
  protected:
    ShutdownStory() {
        ::setenv("BRICKFALL_SANDBOX_CONNECT", remote_.box.ConnectTo().c_str(), 1);
        ::setenv("BRICKFALL_SANDBOX_CA", remote_.box.CaFile().c_str(), 1);
        remote_.box.Fund(wallet_.ReceiveAddress(0), 100'000);
    }
    ~ShutdownStory() override {
        ::unsetenv("BRICKFALL_SANDBOX_CONNECT");
        ::unsetenv("BRICKFALL_SANDBOX_CA");
    }

    // Until a request has reached its service, by the real clock: it comes from another process.
    bool HasArrived(Service service, std::string_view part) const {
        const Clock& clock = SystemClock();
        for (int look = 0; look < 5'000; ++look) {
            const std::vector<std::string> requests = remote_.box.Requests(service);
            if (std::ranges::any_of(requests, [part](const std::string& request) {
                    return request.find(part) != std::string::npos;
                })) {
                return true;
            }
            clock.sleep_ms(clock.self, 2);
        }
        return false;
    }

    static int Close(ChildProcess& cabinet) {
        cabinet.Write("close\n");
        return cabinet.Wait();
    }

    static ChildProcess StartCabinet(const std::string& what) {
        return ChildProcess(kProgram, {what, std::to_string(kExitCode)});
    }

    WalletFixture wallet_;
    SandboxFixture remote_;
};

TEST_F(ShutdownStory, DuringAPayment) {
    remote_.Disturb(Service::kRelay, FaultKind::kNoAnswer, "");
    ChildProcess cabinet = StartCabinet("payment");
    EXPECT_TRUE(HasArrived(Service::kRelay, "POST "));
    EXPECT_EQ(Close(cabinet), kExitCode);
}

TEST_F(ShutdownStory, DuringTheSubmitBehindAPayment) {
    remote_.Disturb(Service::kChain, FaultKind::kNoAnswer, "/tx/raw");
    ChildProcess cabinet = StartCabinet("payment");
    EXPECT_TRUE(cabinet.ReadUntil("success: "));
    EXPECT_TRUE(HasArrived(Service::kChain, "/tx/raw"));
    EXPECT_EQ(Close(cabinet), kExitCode);
    EXPECT_EQ(remote_.box.TotalFunded(), remote_.box.TotalUnspent() + remote_.box.TotalFees());
}

TEST_F(ShutdownStory, DuringARefresh) {
    remote_.Disturb(Service::kChain, FaultKind::kNoAnswer, "/unspent");
    ChildProcess cabinet = StartCabinet("refresh");
    EXPECT_TRUE(HasArrived(Service::kChain, "/unspent"));
    EXPECT_EQ(Close(cabinet), kExitCode);
}

TEST_F(ShutdownStory, DuringAConnectPoll) {
    const TempUserData without_a_wallet;
    ChildProcess cabinet = StartCabinet("poll");
    EXPECT_TRUE(cabinet.ReadUntil("polling"));
    EXPECT_EQ(Close(cabinet), kExitCode);
}

// Nothing is held up here: the workers derive keys, shake hands and sign while the process takes itself down,
// each time at another point, since the services answer later and later.
TEST_F(ShutdownStory, AtAnyMoment) {
    for (int64_t delay_ms = 0; delay_ms < 24; delay_ms += 3) {
        remote_.box.ClearFaults();
        for (const Service service : {Service::kChain, Service::kRelay, Service::kPaymail}) {
            Fault late;
            late.kind = FaultKind::kDelay;
            late.delay_ms = delay_ms;
            remote_.box.AddFault(service, late);
        }
        ChildProcess cabinet = StartCabinet("all");
        EXPECT_TRUE(cabinet.ReadUntil("started"));
        EXPECT_EQ(Close(cabinet), kExitCode) << delay_ms;
    }
    EXPECT_EQ(remote_.box.TotalFunded(), remote_.box.TotalUnspent() + remote_.box.TotalFees());
}

}  // namespace
}  // namespace brickfall
