// hashes.h - the two hash chains of the chain: double SHA-256, and RIPEMD-160 of SHA-256. Pure functions; any
// thread.
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace brickfall {

using Hash160 = std::array<uint8_t, 20>;  // RIPEMD-160 of SHA-256
using Hash256 = std::array<uint8_t, 32>;

Hash256 Sha256Once(std::span<const uint8_t> bytes);
Hash256 Sha256Twice(std::span<const uint8_t> bytes);
Hash160 Hash160Of(std::span<const uint8_t> bytes);

}  // namespace brickfall
