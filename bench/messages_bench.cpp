// Verification beside the library's bare call, and the heaviest row that a run can leave.
#include <benchmark/benchmark.h>

#include <nlohmann/json.hpp>
#include <string>

#include "base/workers.h"
#include "bench/services_program.h"
#include "deployment/deployment.h"
#include "messages/row.h"
#include "messages/signing.h"
#include "messages/verification.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/link/status_refresh.h"
#include "wallet/payment/pay_drivers.h"
#include "wallet/protocol/curve.h"
#include "wallet/protocol/hashes.h"
#include "wallet/protocol/signed_message.h"
#include "wallet/session/identity_signature.h"
#include "wallet/session/wallet_session.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr std::size_t kFullTapeHex = 2'000'020;  // 200,000 events

// The canonical string of a score row, and its parts.
struct Signed {
    WalletFixture wallet{"ada"};
    std::string text = "OV1|arcade_score|arcade|ada|ada|1790000000|brickfall|4200|1789948800|" +
                       std::string(64, 'a') + "|1BoatSLRHtKNngkdXEeobR76b53LETtpyT|" + std::string(64, 'b');
    std::string public_hex;
    std::string signature;
    std::string error;

    Signed() { SignIdentityMessage(text, public_hex, signature, error); }
};

void BareVerify(benchmark::State& state) {
    const EcKeyPtr key(EC_KEY_new());
    EC_KEY_set_group(key.get(), Secp256k1());
    EC_KEY_generate_key(key.get());
    const Hash256 digest = SignedMessageDigest("text");
    const EcdsaSigPtr signature(ECDSA_do_sign(digest.data(), static_cast<int>(digest.size()), key.get()));
    for (auto _ : state) {
        if (ECDSA_do_verify(digest.data(), static_cast<int>(digest.size()), signature.get(), key.get()) !=
            1) {
            state.SkipWithError("not verified");
        }
    }
}
BENCHMARK(BareVerify)->Unit(benchmark::kMicrosecond);

void VerifyOwnForm(benchmark::State& state) {
    const Signed example;
    for (auto _ : state) {
        if (!VerifyCompactSignature(example.text, example.public_hex, example.signature)) {
            state.SkipWithError("not verified");
        }
    }
}
BENCHMARK(VerifyOwnForm)->Unit(benchmark::kMicrosecond);

// The row of 200,000 events built, signed, dumped and sent to the sandbox, which checks it, in wall time. The
// memory peak counts from the first round on.
void RecordAFullTape(benchmark::State& state) {
    const WalletFixture wallet("ada");
    SandboxProgram services;
    services.Fund(CurrentAddress(), 1'000'000'000);
    StatusRefresh();  // publishes the name
    ResetPeak();
    for (auto _ : state) {
        json row = {{"type", "arcade_score"},
                    {"protocol", "Cairn-Wire"},
                    {"location", "arcade"},
                    {"handle", "ada"},
                    {"game", "brickfall"},
                    {"score", 4200},
                    {"week", 1789948800},
                    {"entry", std::string(64, 'a')},
                    {"pay_addr", "1BoatSLRHtKNngkdXEeobR76b53LETtpyT"},
                    {"tape", std::string(kFullTapeHex, '0')},
                    {"tape_hash", std::string(64, 'b')}};
        std::string error;
        if (!SignMessage(row, error)) state.SkipWithError(error.c_str());
        const std::string result = PayArcadeScore(kArcadeWatchAddress, DumpRow(row));
        if (!result.starts_with("success")) state.SkipWithError(result.c_str());
    }
    WaitForWorkers();
    state.counters["peak_MB"] = PeakMegabytes();
}
BENCHMARK(RecordAFullTape)->Unit(benchmark::kMillisecond)->Iterations(20)->UseRealTime();

}  // namespace
}  // namespace brickfall

BENCHMARK_MAIN();
