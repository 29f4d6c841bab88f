// encodings.h - hexadecimal, Base58Check and base64 text, the two hash chains, the integer writers of the
// transaction format, and the step from a private key to a public key and an address. Pure functions; any
// thread.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/secret.h"

namespace brickfall {

using ByteBuffer = std::vector<uint8_t>;
using Hash160 = std::array<uint8_t, 20>;  // RIPEMD-160 of SHA-256
using Hash256 = std::array<uint8_t, 32>;

inline constexpr char kBase58Alphabet[] = "123456789ABCDEFGHJKLMNPQRSTUVWXYZabcdefghijkmnopqrstuvwxyz";
inline constexpr char kBase64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string HexEncode(std::span<const uint8_t> bytes);  // lower case
ByteBuffer HexDecode(std::string_view text);            // either case; empty for any fault
bool HexDecodeSecret(std::string_view text,
                     std::span<uint8_t> out);  // exactly out.size() bytes; no copy left behind

inline std::span<const uint8_t> AsBytes(std::string_view text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

Hash256 Sha256Once(std::span<const uint8_t> bytes);
Hash256 Sha256Twice(std::span<const uint8_t> bytes);
Hash160 Hash160Of(std::span<const uint8_t> bytes);

// The SEC compressed public key (66 lower-case hex digits) of a private key (64 hex digits, big-endian).
// False and empty text when the text is no 32 bytes or the scalar is not in the group's range.
bool PublicKeyFromPrivate(std::string_view private_hex, std::string& public_hex);

// The address of a compressed public key; empty text unless it decodes to exactly 33 bytes.
std::string AddressFromPublicKey(std::string_view public_hex);

std::string Base58CheckEncode(const Hash160& hash);           // version byte 0, P2PKH on the main chain
bool DecodeAddress(std::string_view address, Hash160& hash);  // the only road from address text to a hash

void AppendU32Le(ByteBuffer& out, uint32_t value);
void AppendU64Le(ByteBuffer& out, uint64_t value);
void AppendVarInt(ByteBuffer& out, uint64_t value);  // Bitcoin compact size
void AppendPushData(ByteBuffer& out, std::span<const uint8_t> data);
ByteBuffer P2pkhScript(const Hash160& hash);  // 25 bytes

std::string Base64Encode(std::span<const uint8_t> bytes);  // RFC 4648, padded

}  // namespace brickfall
