#include "sandbox/server/test_key.h"

#include <openssl/evp.h>
#include <openssl/obj_mac.h>

#include <utility>

#include "sandbox/server/curve_ptr.h"
#include "sandbox/server/script_check.h"

namespace brickfall::sandbox {
namespace {

constexpr std::size_t kSide = 32;  // bytes of r, and of s

KeyPtr CurveKey(const Digest& number) {
    KeyPtr key(EC_KEY_new_by_curve_name(NID_secp256k1));
    const BignumPtr secret(BN_bin2bn(number.data(), static_cast<int>(number.size()), nullptr));
    if (!key || !secret) return nullptr;
    const EC_GROUP* const curve = EC_KEY_get0_group(key.get());
    const PointPtr point(EC_POINT_new(curve));
    if (!point || EC_POINT_mul(curve, point.get(), secret.get(), nullptr, nullptr, nullptr) != 1 ||
        EC_KEY_set_private_key(key.get(), secret.get()) != 1 ||
        EC_KEY_set_public_key(key.get(), point.get()) != 1) {
        return nullptr;
    }
    return key;
}

SignaturePtr Sign(const TestKey& key, const Digest& digest) {
    const KeyPtr curve_key = CurveKey(key.number);
    if (!curve_key) return nullptr;
    SignaturePtr signature(ECDSA_do_sign(digest.data(), static_cast<int>(digest.size()), curve_key.get()));
    if (!signature) return nullptr;
    const BIGNUM* const order = EC_GROUP_get0_order(EC_KEY_get0_group(curve_key.get()));
    BignumPtr r(BN_dup(ECDSA_SIG_get0_r(signature.get())));
    BignumPtr s(BN_new());
    const BignumPtr half(BN_new());
    if (!r || !s || !half || BN_rshift1(half.get(), order) != 1 ||
        BN_sub(s.get(), order, ECDSA_SIG_get0_s(signature.get())) != 1) {
        return nullptr;
    }
    if (BN_cmp(s.get(), half.get()) > 0) return signature;
    if (ECDSA_SIG_set0(signature.get(), r.get(), s.get()) != 1) return nullptr;
    static_cast<void>(r.release());  // the pair owns both now
    static_cast<void>(s.release());
    return signature;
}

}  // namespace

TestKey TestKeyOf(std::string_view name) {
    TestKey key;
    key.number = Sha256(ViewOf("Brickfall sandbox test key of " + std::string(name)));
    const KeyPtr curve_key = CurveKey(key.number);
    if (!curve_key) return key;
    key.public_key.resize(33);
    const std::size_t size = EC_POINT_point2oct(
        EC_KEY_get0_group(curve_key.get()), EC_KEY_get0_public_key(curve_key.get()),
        POINT_CONVERSION_COMPRESSED, key.public_key.data(), key.public_key.size(), nullptr);
    key.public_key.resize(size);
    key.hash = HashOfKey(key.public_key);
    return key;
}

Bytes SignDigest(const TestKey& key, const Digest& digest) {
    const SignaturePtr signature = Sign(key, digest);
    const int size = signature ? i2d_ECDSA_SIG(signature.get(), nullptr) : 0;
    if (size <= 0) return {};
    Bytes der(static_cast<std::size_t>(size));
    uint8_t* out = der.data();
    i2d_ECDSA_SIG(signature.get(), &out);
    return der;
}

std::string SignText(const TestKey& key, std::string_view text) {
    const SignaturePtr signature = Sign(key, SignedTextDigest(text));
    Bytes compact(2 * kSide);
    if (!signature || BN_bn2binpad(ECDSA_SIG_get0_r(signature.get()), compact.data(), kSide) < 0 ||
        BN_bn2binpad(ECDSA_SIG_get0_s(signature.get()), compact.data() + kSide, kSide) < 0) {
        return "";
    }
    std::string base64(4 * ((compact.size() + 2) / 3), '\0');
    // The terminating zero goes where the string's own stands.
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(base64.data()), compact.data(),
                    static_cast<int>(compact.size()));
    return base64;
}

}  // namespace brickfall::sandbox
