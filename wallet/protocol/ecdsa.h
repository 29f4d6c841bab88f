// ecdsa.h - signs a digest with a private key. Pure; any thread.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "wallet/protocol/encodings.h"

namespace brickfall {

// ECDSA over a 32-byte digest, DER, with s in the lower half of the order and a fresh random nonce.
bool SignDigest(std::string_view private_hex, std::span<const uint8_t, 32> digest, ByteBuffer& der);

}  // namespace brickfall
