// A cabinet that is closed at the worst moments: its main function returns while workers are in the middle of
// a payment, a refresh, a poll or the submit behind a payment. Each time it ends at once with the exit code
// of its own, which a crash or a sanitizer's report would replace.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>

#include "base/clock.h"
#include "tests/support/child_process.h"
#include "tests/support/wallet_fixture.h"

namespace brickfall {
namespace {

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

    // A request of the other process is looked for by the real clock.
    bool HasArrived(Service service, std::string_view part) const {
        for (int look = 0; look < 5'000 && remote_.Asked(service, part) == 0; ++look) {
            SystemClock().sleep_ms(SystemClock().self, 2);
        }
        return remote_.Asked(service, part) > 0;
    }

    // Closes it once it has said `line` and `arrived` holds.
    void CloseWhile(const char* what, const char* line, const std::function<bool()>& arrived) {
        SCOPED_TRACE(what);
        ChildProcess cabinet(kProgram, {what, std::to_string(kExitCode)});
        EXPECT_TRUE(cabinet.ReadUntil(line));
        EXPECT_TRUE(arrived());
        cabinet.Write("close\n");
        EXPECT_EQ(cabinet.Wait(), kExitCode);
        EXPECT_EQ(remote_.box.TotalFunded(), remote_.box.TotalUnspent() + remote_.box.TotalFees());
        remote_.box.ClearFaults();
        remote_.box.ClearRequests();
    }

    WalletFixture wallet_;
    SandboxFixture remote_;
};

TEST_F(ShutdownStory, InTheMiddleOfARequest) {
    const struct {
        const char* what;
        const char* line;  // said before
        Service service;   // does not answer
        const char* path;
    } rows[] = {
        {"refresh", "started", Service::kChain, "/unspent"},
        {"payment", "started", Service::kRelay, ""},
        {"payment", "success: ", Service::kChain, "/tx/raw"},  // the submit behind a payment
    };
    for (const auto& row : rows) {
        remote_.Disturb(row.service, FaultKind::kNoAnswer, row.path);
        CloseWhile(row.what, row.line, [&] { return HasArrived(row.service, row.path); });
    }
    const TempUserData without_a_wallet;
    CloseWhile("poll", "polling", [] { return true; });
}

// Nothing is held up here: the workers derive keys, shake hands and sign while the process takes itself down,
// each time at another point, since the services answer later and later.
TEST_F(ShutdownStory, AtAnyMoment) {
    for (int64_t delay_ms = 0; delay_ms < 24; delay_ms += 3) {
        for (const Service service : {Service::kChain, Service::kRelay, Service::kPaymail}) {
            remote_.box.AddFault(service, {FaultKind::kDelay, 0, "", "", {}, delay_ms, -1, ""});
        }
        CloseWhile("all", "started", [] { return true; });
    }
}

}  // namespace
}  // namespace brickfall
