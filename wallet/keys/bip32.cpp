#include "wallet/keys/bip32.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "base/secret.h"
#include "wallet/protocol/encodings.h"

namespace brickfall {
namespace {

constexpr std::string_view kMasterKey = "Bitcoin seed";

using HmacOutput = std::array<uint8_t, 64>;

bool HmacSha512(std::span<const uint8_t> key, std::span<const uint8_t> data, HmacOutput& output) {
    unsigned int length = 0;
    const auto* done = HMAC(EVP_sha512(), key.data(), static_cast<int>(key.size()), data.data(), data.size(),
                            output.data(), &length);
    return done != nullptr && length == output.size();
}

// (left + parent) modulo the order. False when the left half is out of range or the sum is zero.
bool AddKeys(std::span<const uint8_t, 32> left, const std::array<uint8_t, 32>& parent,
             std::array<uint8_t, 32>& sum) {
    const BIGNUM* order = EC_GROUP_get0_order(Secp256k1());
    const BignumPtr tweak = SecretNumber(left);
    const BignumPtr key = SecretNumber(parent);
    const BignumPtr child(BN_secure_new());
    if (!tweak || !key || !child) return false;
    if (BN_cmp(tweak.get(), order) >= 0 || BN_cmp(key.get(), order) >= 0) return false;
    // Constant time for numbers below the modulus.
    if (BN_mod_add_quick(child.get(), tweak.get(), key.get(), order) != 1) return false;
    return !BN_is_zero(child.get()) && BN_bn2binpad(child.get(), sum.data(), 32) == 32;
}

using ChildDataBytes = std::array<uint8_t, kCompressedKeyBytes + 4>;

// `first` is the compressed public key of the parent, or for a hardened index a zero byte and its key.
ChildDataBytes ChildData(const CompressedPoint& first, uint32_t index) {
    ChildDataBytes data;
    std::copy(first.begin(), first.end(), data.begin());
    for (std::size_t i = 0; i < 4; ++i) {
        data[kCompressedKeyBytes + i] = static_cast<uint8_t>(index >> (24 - 8 * i));
    }
    return data;
}

}  // namespace

// `first` as for ChildData.
bool DeriveChild(const ExtendedKey& parent, const CompressedPoint& first, uint32_t index,
                 ExtendedKey& child) {
    ChildDataBytes data = ChildData(first, index);
    const WipeAtExit wipe_data(data);
    HmacOutput output;
    const WipeAtExit wipe_output(output);
    if (!HmacSha512(parent.chain_code, data, output)) return false;
    if (!AddKeys(std::span(output).first<32>(), parent.key, child.key)) return false;
    std::copy_n(output.begin() + 32, 32, child.chain_code.begin());
    return true;
}

// Replaces the node by the one that the indices lead to.
bool Descend(ExtendedKey& node, std::span<const uint32_t> indices) {
    ExtendedKey child;
    const WipeAtExit wipe_child(child);
    for (const uint32_t index : indices) {
        if (!DeriveChildKey(node, index, child)) return false;
        node = child;
    }
    return true;
}

bool MasterKey(std::span<const uint8_t> seed, ExtendedKey& master) {
    HmacOutput output;
    const WipeAtExit wipe_output(output);
    if (!HmacSha512(AsBytes(kMasterKey), seed, output)) return false;
    std::copy_n(output.begin(), 32, master.key.begin());
    std::copy_n(output.begin() + 32, 32, master.chain_code.begin());
    return true;
}

bool DerivePublicChild(const EC_POINT* parent, const CompressedPoint& parent_key,
                       std::span<const uint8_t, 32> chain_code, uint32_t index, CompressedPoint& child) {
    HmacOutput output;
    const WipeAtExit wipe_output(output);
    return HmacSha512(chain_code, ChildData(parent_key, index), output) &&
           AddMultipleOfGenerator(parent, std::span(output).first<32>(), child);
}

bool DeriveChildKey(const ExtendedKey& parent, uint32_t index, ExtendedKey& child) {
    CompressedPoint first{};
    const WipeAtExit wipe_first(first);
    if (index >= kHardenedBit) {
        std::copy(parent.key.begin(), parent.key.end(), first.begin() + 1);
    } else if (!CompressedPublicKey(parent.key, first)) {
        return false;
    }
    return DeriveChild(parent, first, index, child);
}

}  // namespace brickfall
