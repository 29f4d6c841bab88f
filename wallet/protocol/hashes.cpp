#include "wallet/protocol/hashes.h"

#include <openssl/ripemd.h>
#include <openssl/sha.h>

namespace brickfall {

Hash256 Sha256Once(std::span<const uint8_t> bytes) {
    Hash256 hash;
    SHA256(bytes.data(), bytes.size(), hash.data());
    return hash;
}

Hash256 Sha256Twice(std::span<const uint8_t> bytes) { return Sha256Once(Sha256Once(bytes)); }

Hash160 Hash160Of(std::span<const uint8_t> bytes) {
    const Hash256 inner = Sha256Once(bytes);
    Hash160 hash;
    RIPEMD160(inner.data(), inner.size(), hash.data());
    return hash;
}

}  // namespace brickfall
