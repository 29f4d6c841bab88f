// bytes.h - the encodings and hashes that the sandbox's services need, in code of their own: a fault in the
// wallet's must not go unseen because the judge shares it. Pure functions; any thread.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace brickfall::sandbox {

using Bytes = std::vector<uint8_t>;
using ByteView = std::span<const uint8_t>;
using KeyHash = std::array<uint8_t, 20>;  // RIPEMD-160 of SHA-256
using Digest = std::array<uint8_t, 32>;

inline ByteView ViewOf(std::string_view text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

std::string ToHex(ByteView bytes);
std::optional<Bytes> FromHex(std::string_view text);     // either case
std::optional<Bytes> FromBase64(std::string_view text);  // padded, nothing else in it

Digest Sha256(ByteView bytes);
Digest DoubleSha256(ByteView bytes);
KeyHash HashOfKey(ByteView public_key);

// Transaction ids are shown with their bytes reversed.
std::string IdText(const Digest& id);
std::optional<Digest> ParseIdText(std::string_view text);

// P2PKH on the main chain: Base58Check with version byte 0.
std::string AddressText(const KeyHash& hash);
std::optional<KeyHash> ParseAddress(std::string_view text);

Bytes PayToKeyHash(const KeyHash& hash);
std::optional<KeyHash> PaidKeyHash(ByteView locking_script);  // nothing for any other form of script

void PutU32(Bytes& out, uint32_t value);  // little-endian
void PutU64(Bytes& out, uint64_t value);
void PutCompactSize(Bytes& out, uint64_t value);
void PutBytes(Bytes& out, ByteView bytes);

}  // namespace brickfall::sandbox
