// encodings.h - hexadecimal and base64 text. Pure functions; any thread.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace brickfall {

using ByteBuffer = std::vector<uint8_t>;
inline constexpr char kBase64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string HexEncode(std::span<const uint8_t> bytes);  // lower case
ByteBuffer HexDecode(std::string_view text);            // either case; empty for any fault

bool HexDecodeSecret(std::string_view text,
                     std::span<uint8_t> out);  // exactly out.size() bytes; no copy left behind

inline std::span<const uint8_t> AsBytes(std::string_view text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

std::string Base64Encode(std::span<const uint8_t> bytes);  // RFC 4648, padded

}  // namespace brickfall
