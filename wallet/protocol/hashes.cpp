#include "wallet/protocol/hashes.h"

#include <openssl/ripemd.h>
#include <openssl/sha.h>

#include "base/secret.h"

namespace brickfall {

Hash256 Sha256Once(std::span<const uint8_t> bytes) {
    // The library's call for all of it at once asks for memory, and fills nothing in where there is none.
    SHA256_CTX context;
    const WipeAtExit wipe_context(context);
    Hash256 hash;
    SHA256_Init(&context);
    SHA256_Update(&context, bytes.data(), bytes.size());
    SHA256_Final(hash.data(), &context);
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
