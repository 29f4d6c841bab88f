// A payment up to the network, from a wallet of one receive address and from one of a thousand and one, the
// coins of both on the first address alone: the thousand empty ones must cost next to nothing.
#include <benchmark/benchmark.h>

#include "tests/support/wallet_fixture.h"
#include "wallet/coins/balance_cache.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/payment/coin_selection.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/hashes.h"
#include "wallet/protocol/outpoint.h"
#include "wallet/protocol/script.h"
#include "wallet/protocol/transaction.h"
#include "wallet/session/coin_refresh.h"

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
        bool done = EnsureUtxoCache(lock, error) && CollectSpendable(inputs, total, error) &&
                    BuildTransaction(inputs, outputs, change, wanted, fee, error);
        for (SpendInput& input : inputs) {
            done = done && SignInput(input, inputs, outputs, input.hash, input.priv, input.pub);
        }
        if (!done) state.SkipWithError("no payment");
        benchmark::DoNotOptimize(SerializeTx(inputs, outputs, /*skeleton=*/false).data());
    }
}
BENCHMARK(PaymentOfAWalletWithLastReceiveIndex)->Arg(0)->Arg(1'000)->Unit(benchmark::kMicrosecond);

// What strangers may send: thousands of coins on one address, all of them looked at for each payment.
void CollectCoins(benchmark::State& state) {
    const WalletFixture wallet;
    const WalletLock lock(wallet_mutex);
    std::vector<Utxo> coins;
    for (uint32_t i = 0; i < state.range(0); ++i) coins.push_back({TestTxid(i), 0, 100});
    StoreUtxoList(wallet.ReceiveAddress(0), coins, /*ok=*/true, /*merge=*/false);
    std::string error;
    for (auto _ : state) {
        std::vector<SpendInput> inputs;
        int64_t total = 0;
        if (!CollectSpendable(inputs, total, error)) state.SkipWithError("no coins");
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(CollectCoins)->Arg(2'000)->Arg(20'000)->Unit(benchmark::kMillisecond)->Complexity(benchmark::oN);

// The digests of a transaction that spends them all.
void SignCoins(benchmark::State& state) {
    const WalletFixture wallet;
    const WalletLock lock(wallet_mutex);
    std::vector<SpendInput> inputs(static_cast<std::size_t>(state.range(0)));
    for (uint32_t i = 0; i < inputs.size(); ++i) inputs[i].txid = TestTxid(i);
    const PayOutput output{1'000, P2pkhScript(Hash160{})};
    for (auto _ : state) {
        const auto shared = MakeSharedDigests(inputs, std::span(&output, 1));
        for (SpendInput& input : inputs) {
            if (!shared || !SignInput(input, *shared, Hash160{}, wallet_keys.priv, wallet_keys.pub)) {
                state.SkipWithError("no signature");
            }
        }
    }
}
BENCHMARK(SignCoins)->Arg(200)->Arg(2'000)->Unit(benchmark::kMillisecond);

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
