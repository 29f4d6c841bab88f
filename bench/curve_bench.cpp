// The wallet's work on the curve beside the bare multiplications that it cannot do without, and the listing
// of a wallet with a thousand receive addresses.
#include <benchmark/benchmark.h>

#include "wallet/keys/key_derivation.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/curve.h"
#include "wallet/protocol/hashes.h"
#include "wallet/session/coin_refresh.h"
#include "wallet/session/wallet_session.h"

namespace brickfall {
namespace {

constexpr uint32_t kLastReceive = 1000;
constexpr char kPrivateHex[] = "619c335025c7f4012e556c2a58b2506e30b8511b53ade95ea316fd8c3286feb9";

// A wallet in memory alone; the seed is computed before anything is measured.
struct BenchWallet {
    BenchWallet() {
        ClearWalletState();
        wallet_keys.is_hd = true;
        wallet_keys.mnemonic =
            "abandon abandon abandon abandon abandon abandon abandon abandon abandon abandon abandon about";
        wallet_keys.recv[1] = kLastReceive;
        SecretString private_hex;
        DeriveAtPath(kIdentityPath, private_hex, wallet_keys.identity_pub, wallet_keys.identity_address);
        DeriveAtPath(ReceivePath(0), wallet_keys.priv, wallet_keys.pub, wallet_keys.address);
    }
    ~BenchWallet() { ClearWalletState(); }

    WalletLock lock{wallet_mutex};
};

void BareMultiplications(benchmark::State& state) {
    const EC_GROUP* group = Secp256k1();
    BIGNUM* number = nullptr;
    BN_hex2bn(&number, kPrivateHex);
    const BignumPtr scalar(number);
    const EcPointPtr point(EC_POINT_new(group));
    for (auto _ : state) {
        for (int64_t i = 0; i < state.range(0); ++i) {
            EC_POINT_mul(group, point.get(), scalar.get(), nullptr, nullptr, nullptr);
        }
    }
}
BENCHMARK(BareMultiplications)->Arg(1)->Arg(3)->Arg(kLastReceive + 1)->Unit(benchmark::kMicrosecond);

void OnePublicKeyFromPrivate(benchmark::State& state) {
    std::string public_hex;
    for (auto _ : state) {
        if (!PublicKeyFromPrivate(kPrivateHex, public_hex)) state.SkipWithError("no public key");
    }
}
BENCHMARK(OnePublicKeyFromPrivate)->Unit(benchmark::kMicrosecond);

void OnePathOfFiveLevels(benchmark::State& state) {
    const BenchWallet wallet;
    SecretString private_hex;
    std::string public_hex, address;
    for (auto _ : state) {
        if (!DeriveAtPath(kIdentityPath, private_hex, public_hex, address)) state.SkipWithError("no key");
    }
}
BENCHMARK(OnePathOfFiveLevels)->Unit(benchmark::kMicrosecond);

// Below the parent node that the wallet keeps.
void OneReceivePath(benchmark::State& state) {
    const BenchWallet wallet;
    SecretString private_hex;
    std::string public_hex, address;
    uint32_t index = 0;
    for (auto _ : state) {
        if (!DeriveAtPath(ReceivePath(index++), private_hex, public_hex, address)) {
            state.SkipWithError("no key");
        }
    }
}
BENCHMARK(OneReceivePath)->Unit(benchmark::kMicrosecond);

void FirstListing(benchmark::State& state) {
    BenchWallet wallet;
    for (auto _ : state) {
        ClearDerivationCache();
        ListOwnedAddresses(wallet.lock);
        if (OwnedAddresses().size() != kLastReceive + 2) state.SkipWithError("not all addresses");
    }
}
BENCHMARK(FirstListing)->Unit(benchmark::kMicrosecond);

void SecondListing(benchmark::State& state) {
    BenchWallet wallet;
    ListOwnedAddresses(wallet.lock);
    for (auto _ : state) benchmark::DoNotOptimize(OwnedAddresses().data());
}
BENCHMARK(SecondListing)->Unit(benchmark::kNanosecond);

void FindTheOwnerOfAHash(benchmark::State& state) {
    BenchWallet wallet;
    ListOwnedAddresses(wallet.lock);
    const Hash160 last = OwnedAddresses()[kLastReceive].hash;
    for (auto _ : state) benchmark::DoNotOptimize(FindOwnedHash(last));
}
BENCHMARK(FindTheOwnerOfAHash)->Unit(benchmark::kNanosecond);

void FindTheOwnerOfAnAddress(benchmark::State& state) {
    BenchWallet wallet;
    ListOwnedAddresses(wallet.lock);
    const std::string last = OwnedAddresses()[kLastReceive].address;
    for (auto _ : state) benchmark::DoNotOptimize(FindOwnedAddress(last));
}
BENCHMARK(FindTheOwnerOfAnAddress)->Unit(benchmark::kNanosecond);

}  // namespace
}  // namespace brickfall

BENCHMARK_MAIN();
