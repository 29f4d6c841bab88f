#include "wallet/protocol/ecdsa.h"

#include <array>
#include <cstddef>
#include <utility>

#include "base/secret.h"
#include "wallet/protocol/curve.h"

namespace brickfall {
namespace {

// A key with both halves in place, or nullptr for a scalar outside the group's range.
EcKeyPtr MakeSigningKey(std::string_view private_hex) {
    std::array<uint8_t, 32> bytes{};
    const WipeAtExit wipe(bytes);
    if (!HexDecodeSecret(private_hex, bytes)) return nullptr;

    const EC_GROUP* group = Secp256k1();
    const BignumPtr scalar = SecretNumber(bytes);
    if (!scalar || BN_is_zero(scalar.get()) || BN_cmp(scalar.get(), EC_GROUP_get0_order(group)) >= 0) {
        return nullptr;
    }
    BN_set_flags(scalar.get(), BN_FLG_CONSTTIME);

    EcKeyPtr key(EC_KEY_new());
    const EcPointPtr point(EC_POINT_new(group));
    const bool made = key && point && EC_KEY_set_group(key.get(), group) == 1 &&
                      EC_POINT_mul(group, point.get(), scalar.get(), nullptr, nullptr, nullptr) == 1 &&
                      EC_KEY_set_private_key(key.get(), scalar.get()) == 1 &&
                      EC_KEY_set_public_key(key.get(), point.get()) == 1;
    return made ? std::move(key) : nullptr;
}

// Of the two valid values s and order - s the network takes the lower one only.
bool PutLowS(ECDSA_SIG* signature) {
    const BIGNUM* order = EC_GROUP_get0_order(Secp256k1());
    const BignumPtr half(BN_new());
    if (!half || BN_rshift1(half.get(), order) != 1) return false;
    const BIGNUM* s = ECDSA_SIG_get0_s(signature);
    if (BN_cmp(s, half.get()) <= 0) return true;

    BignumPtr low_r(BN_dup(ECDSA_SIG_get0_r(signature)));
    BignumPtr low_s(BN_new());
    if (!low_r || !low_s || BN_sub(low_s.get(), order, s) != 1) return false;
    if (ECDSA_SIG_set0(signature, low_r.get(), low_s.get()) != 1) return false;
    static_cast<void>(low_r.release());  // the signature owns both now
    static_cast<void>(low_s.release());
    return true;
}

}  // namespace

bool SignDigest(std::string_view private_hex, std::span<const uint8_t, 32> digest, ByteBuffer& der) {
    der.clear();
    const EcKeyPtr key = MakeSigningKey(private_hex);
    if (!key) return false;
    const EcdsaSigPtr signature(ECDSA_do_sign(digest.data(), static_cast<int>(digest.size()), key.get()));
    if (!signature || !PutLowS(signature.get())) return false;

    const int length = i2d_ECDSA_SIG(signature.get(), nullptr);
    if (length <= 0) return false;
    der.resize(static_cast<std::size_t>(length));
    uint8_t* place = der.data();
    if (i2d_ECDSA_SIG(signature.get(), &place) == length) return true;
    der.clear();
    return false;
}

}  // namespace brickfall
