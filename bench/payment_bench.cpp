// A payment up to the network, from a wallet of one receive address and from one of a thousand and one, the
// coins of both on the first address alone: the thousand empty ones must cost next to nothing.
#include <benchmark/benchmark.h>

#include "tests/support/wallet_fixture.h"
#include "wallet/spend_guard.h"
#include "wallet/utxo_discovery.h"

namespace brickfall {
namespace {

constexpr uint32_t kCoins = 4;

// What the services told: coins on the first address, nothing on the others.
void FillCache() {
    std::vector<std::string> addresses;
    WalletAddresses(addresses);
    for (const std::string& address : addresses) {
        std::vector<Utxo> coins;
        for (uint32_t i = 0; i < kCoins && address == addresses.front(); ++i) {
            coins.push_back({TestTxid(i), i, 3'000});
        }
        ApplyRefresh({{address, coins, /*ok=*/true, {}, /*guard_ok=*/true, /*complete=*/true}});
    }
}

void PaymentOfAWalletWithLastReceiveIndex(benchmark::State& state) {
    const WalletFixture wallet("ada", static_cast<uint32_t>(state.range(0)));
    WalletLock lock(wallet_mutex);
    Hash160 change{};
    DecodeAddress(wallet_keys.address, change);
    const std::vector<PayOutput> wanted{{2'000, P2pkhScript(change)}, {3'000, P2pkhScript(change)}};
    ListOwnedAddresses(lock);
    FillCache();
    std::string error;
    for (auto _ : state) {
        std::vector<SpendInput> inputs;
        std::vector<PayOutput> outputs;
        int64_t total = 0, fee = 0;
        bool done = EnsureUtxoCache(lock, error) && CollectSpendable(inputs, total) &&
                    BuildTransaction(inputs, outputs, change, wanted, fee, error);
        for (SpendInput& input : inputs) {
            done = done && SignInput(input, inputs, outputs, input.hash, input.priv, input.pub);
        }
        if (!done) state.SkipWithError("no payment");
        benchmark::DoNotOptimize(SerializeTx(inputs, outputs, /*skeleton=*/false).data());
    }
}
BENCHMARK(PaymentOfAWalletWithLastReceiveIndex)->Arg(0)->Arg(1'000)->Unit(benchmark::kMicrosecond);

void BalanceOfAWalletWithLastReceiveIndex(benchmark::State& state) {
    const WalletFixture wallet("ada", static_cast<uint32_t>(state.range(0)));
    WalletLock lock(wallet_mutex);
    ListOwnedAddresses(lock);
    FillCache();
    for (auto _ : state) benchmark::DoNotOptimize(SpendableBalance());
}
BENCHMARK(BalanceOfAWalletWithLastReceiveIndex)->Arg(0)->Arg(1'000)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace brickfall

BENCHMARK_MAIN();
