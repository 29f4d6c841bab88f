// A payment signature beside the bare library calls that it cannot do without: one multiplication of the
// generator and one ECDSA_do_sign.
#include <benchmark/benchmark.h>

#include "wallet/protocol/address.h"
#include "wallet/protocol/curve.h"
#include "wallet/protocol/ecdsa.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/hashes.h"
#include "wallet/protocol/script.h"
#include "wallet/protocol/transaction.h"

namespace brickfall {
namespace {

constexpr char kPrivateHex[] = "619c335025c7f4012e556c2a58b2506e30b8511b53ade95ea316fd8c3286feb9";

BignumPtr Scalar() {
    BIGNUM* scalar = nullptr;
    BN_hex2bn(&scalar, kPrivateHex);
    return BignumPtr(scalar);
}

void BareMultiplyAndSign(benchmark::State& state) {
    const EC_GROUP* group = Secp256k1();
    const BignumPtr scalar = Scalar();
    const EcPointPtr point(EC_POINT_new(group));
    const EcKeyPtr key(EC_KEY_new());
    EC_KEY_set_group(key.get(), group);
    EC_POINT_mul(group, point.get(), scalar.get(), nullptr, nullptr, nullptr);
    EC_KEY_set_private_key(key.get(), scalar.get());
    EC_KEY_set_public_key(key.get(), point.get());
    const Hash256 digest{1, 2, 3};
    for (auto _ : state) {
        EC_POINT_mul(group, point.get(), scalar.get(), nullptr, nullptr, nullptr);
        const EcdsaSigPtr signature(ECDSA_do_sign(digest.data(), 32, key.get()));
        benchmark::DoNotOptimize(signature.get());
    }
}
BENCHMARK(BareMultiplyAndSign)->Unit(benchmark::kMicrosecond);

void OneSignDigest(benchmark::State& state) {
    const Hash256 digest{1, 2, 3};
    ByteBuffer der;
    for (auto _ : state) {
        if (!SignDigest(kPrivateHex, digest, der)) state.SkipWithError("no signature");
        benchmark::DoNotOptimize(der.data());
    }
}
BENCHMARK(OneSignDigest)->Unit(benchmark::kMicrosecond);

// A whole payment of the usual size, built and signed, without the network.
void BuildAndSignEntry(benchmark::State& state) {
    SpendInput coin;
    coin.txid = std::string(64, 'a');
    coin.value = 10'000;
    const Hash160 hash{};
    const std::vector<PayOutput> wanted{{2'000, P2pkhScript(hash)}, {3'000, P2pkhScript(hash)}};
    std::string pub;
    PublicKeyFromPrivate(kPrivateHex, pub);
    for (auto _ : state) {
        std::vector<SpendInput> inputs{coin};
        std::vector<PayOutput> outputs;
        int64_t fee = 0;
        std::string error;
        const bool done = BuildTransaction(inputs, outputs, hash, wanted, fee, error) &&
                          SignInput(inputs[0], inputs, outputs, hash, kPrivateHex, pub);
        if (!done) state.SkipWithError("no transaction");
        benchmark::DoNotOptimize(SerializeTx(inputs, outputs, false).data());
    }
}
BENCHMARK(BuildAndSignEntry)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace brickfall

BENCHMARK_MAIN();
