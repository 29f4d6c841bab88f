// bip32.h - BIP32: keys that lead to one another. Pure functions; any thread.
#pragma once

#include <openssl/ec.h>

#include <array>
#include <cstdint>
#include <span>

#include "wallet/protocol/curve.h"

namespace brickfall {

inline constexpr uint32_t kHardenedBit = 0x80000000;

using KeyPath = std::array<uint32_t, 5>;

// 32 key bytes, then 32 chain-code bytes.
struct ExtendedKey {
    std::array<uint8_t, 32> key{};
    std::array<uint8_t, 32> chain_code{};
};

// The master key of a seed. False when it cannot be computed.
bool MasterKey(std::span<const uint8_t> seed, ExtendedKey& master);

// One level of public derivation below a parent, given as point and as text. False when the step fails.
bool DerivePublicChild(const EC_POINT* parent, const CompressedPoint& parent_key,
                       std::span<const uint8_t, 32> chain_code, uint32_t index, CompressedPoint& child);

// BIP32 private derivation of one level with the parent's public key at hand: `first` is that key, or for a
// hardened index a zero byte and the parent's private key.
bool DeriveChild(const ExtendedKey& parent, const CompressedPoint& first, uint32_t index, ExtendedKey& child);

// Replaces the node by the one that the indices lead to.
bool Descend(ExtendedKey& node, std::span<const uint32_t> indices);

// BIP32 private derivation of one level. False when the step fails; there is no move to the next index.
bool DeriveChildKey(const ExtendedKey& parent, uint32_t index, ExtendedKey& child);

}  // namespace brickfall
