#include "wallet/protocol/curve.h"

#include <openssl/obj_mac.h>

#include <new>

namespace brickfall {

BignumPtr SecretNumber(std::span<const uint8_t> bytes) {
    BignumPtr number(BN_secure_new());
    if (!number || BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), number.get()) == nullptr)
        return {};
    return number;
}

const EC_GROUP* Secp256k1() {
    static const EC_GROUP* const group = [] {
        const EC_GROUP* const made = EC_GROUP_new_by_curve_name(NID_secp256k1);
        if (made == nullptr) throw std::bad_alloc();  // the next call tries again
        return made;
    }();
    return group;
}

bool CompressedPublicKey(std::span<const uint8_t, 32> private_key, CompressedPoint& public_key) {
    const EC_GROUP* group = Secp256k1();
    const BignumPtr scalar = SecretNumber(private_key);
    const EcPointPtr point(EC_POINT_new(group));
    const EcKeyPtr key(EC_KEY_new());
    if (!scalar || !point || !key) return false;
    if (BN_is_zero(scalar.get()) || BN_cmp(scalar.get(), EC_GROUP_get0_order(group)) >= 0) return false;
    BN_set_flags(scalar.get(), BN_FLG_CONSTTIME);
    if (EC_POINT_mul(group, point.get(), scalar.get(), nullptr, nullptr, nullptr) != 1) return false;
    // The key object refuses a scalar that the library does not take for a private key.
    if (EC_KEY_set_group(key.get(), group) != 1) return false;
    if (EC_KEY_set_private_key(key.get(), scalar.get()) != 1) return false;
    if (EC_KEY_set_public_key(key.get(), point.get()) != 1) return false;
    const std::size_t written = EC_POINT_point2oct(group, point.get(), POINT_CONVERSION_COMPRESSED,
                                                   public_key.data(), public_key.size(), nullptr);
    return written == public_key.size();
}

bool AddMultipleOfGenerator(const EC_POINT* point, std::span<const uint8_t, 32> scalar,
                            CompressedPoint& sum) {
    const EC_GROUP* group = Secp256k1();
    const BignumPtr multiple(BN_bin2bn(scalar.data(), static_cast<int>(scalar.size()), nullptr));
    const EcPointPtr result(EC_POINT_new(group));
    if (!multiple || !result || BN_cmp(multiple.get(), EC_GROUP_get0_order(group)) >= 0) return false;
    if (EC_POINT_mul(group, result.get(), multiple.get(), point, BN_value_one(), nullptr) != 1) return false;
    return EC_POINT_point2oct(group, result.get(), POINT_CONVERSION_COMPRESSED, sum.data(), sum.size(),
                              nullptr) == sum.size();
}

EcPointPtr DecodePoint(std::span<const uint8_t> bytes) {
    if (bytes.size() != kCompressedKeyBytes && bytes.size() != kUncompressedKeyBytes) return nullptr;
    EcPointPtr point(EC_POINT_new(Secp256k1()));
    if (!point || EC_POINT_oct2point(Secp256k1(), point.get(), bytes.data(), bytes.size(), nullptr) != 1) {
        return nullptr;
    }
    return point;
}

}  // namespace brickfall
