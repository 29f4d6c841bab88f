// A report of full length: sealed, signed and its row built, as the click on the button does it on the main
// thread once the operator's key and the own identity are known.
#include <benchmark/benchmark.h>

#include <nlohmann/json.hpp>
#include <string>

#include "deployment/deployment.h"
#include "messages/direct_message.h"
#include "messages/row.h"
#include "messages/signing.h"
#include "tests/support/sealed_message.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/protocol/encodings.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr char kArchitectKey[] = "0279be667ef9dcbbac55a06295ce870b07029bfcdb2dce28d959f2815b16f81798";

struct Operator {
    WorkingFolder folder;
    SandboxFixture services;
    WalletFixture wallet{"ada"};

    Operator() {
        sandbox::PublishedIdentity identity;
        identity.alias = "ada";
        {
            const WalletLock lock(wallet_mutex);
            identity.pubkey = wallet_keys.identity_pub;
        }
        services.box.Publish(identity);
        StoreEncryptionKey(kArchitectHandle, kArchitectKey, 1);
    }
};

void SealSignAndBuildAReport(benchmark::State& state) {
    const Operator architect;
    const std::string text(2'000, 'r');
    for (auto _ : state) {
        json row = {{"protocol", "Cairn-Wire"},
                    {"type", "report"},
                    {"app", "Brickfall"},
                    {"handle", "ada"},
                    {"location", "arcade"},
                    {"game", "brickfall"},
                    {"to_handle", kArchitectHandle},
                    {"ts", 1'790'000'000}};
        std::string error;
        if (!EncryptDirectMessage({text}, "ada", kArchitectHandle, row, error) || !SignMessage(row, error)) {
            state.SkipWithError(error.c_str());
            break;
        }
        benchmark::DoNotOptimize(DumpRow(row).data());
    }
}
BENCHMARK(SealSignAndBuildAReport)->Unit(benchmark::kMillisecond)->UseRealTime();

void SealAContentKey(benchmark::State& state) {
    const std::string content_key(32, 'k');
    std::string sealed;
    for (auto _ : state) {
        if (!SealToKey(AsBytes(content_key), kArchitectKey, sealed)) state.SkipWithError("not sealed");
        benchmark::DoNotOptimize(sealed.data());
    }
}
BENCHMARK(SealAContentKey)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace brickfall

BENCHMARK_MAIN();
