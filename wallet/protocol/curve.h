// curve.h - secp256k1 (SEC 2) through OpenSSL: the group, kept once for the process, and owners for its
// objects that free, and wipe what is secret, on every path. Any thread.
#pragma once

#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/ecdsa.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace brickfall {

template <auto Free>
struct OpensslFree {
    template <typename T>
    void operator()(T* object) const {
        Free(object);
    }
};

using BnCtxPtr = std::unique_ptr<BN_CTX, OpensslFree<BN_CTX_free>>;
using BignumPtr = std::unique_ptr<BIGNUM, OpensslFree<BN_clear_free>>;
using EcPointPtr = std::unique_ptr<EC_POINT, OpensslFree<EC_POINT_clear_free>>;
using EcKeyPtr = std::unique_ptr<EC_KEY, OpensslFree<EC_KEY_free>>;
using EcdsaSigPtr = std::unique_ptr<ECDSA_SIG, OpensslFree<ECDSA_SIG_free>>;

// SEC 1: a public key is one of these long.
inline constexpr std::size_t kCompressedKeyBytes = 33;
inline constexpr std::size_t kUncompressedKeyBytes = 65;

using CompressedPoint = std::array<uint8_t, kCompressedKeyBytes>;

// A secret number of big-endian bytes, in the library's secure heap. Empty without memory.
BignumPtr SecretNumber(std::span<const uint8_t> bytes);

// The curve's group; immutable, never freed.
const EC_GROUP* Secp256k1();

// The SEC compressed public key of a big-endian private key, at the cost of one generator multiplication in
// constant time. False when the scalar is 0 or not below the group's order.
bool CompressedPublicKey(std::span<const uint8_t, 32> private_key, CompressedPoint& public_key);

// The compressed sum of a point and a multiple of the generator, as BIP32's public derivation wants it: of
// numbers that are no private keys, so in variable time. False when the scalar is not below the group's order
// or the sum is the point at infinity.
bool AddMultipleOfGenerator(const EC_POINT* point, std::span<const uint8_t, 32> scalar, CompressedPoint& sum);

// The point of a SEC public key of 33 or 65 bytes; nullptr for any other size, the point at infinity's one
// byte among them, and for bytes that are no point of the curve.
EcPointPtr DecodePoint(std::span<const uint8_t> bytes);

}  // namespace brickfall
