#include "wallet/protocol/encodings.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <cstddef>

#include "base/text.h"

namespace brickfall {

std::string HexEncode(std::span<const uint8_t> bytes) {
    std::string text;
    AppendHex(text, bytes);
    return text;
}

bool HexDecodeSecret(std::string_view text, std::span<uint8_t> out) {
    if (text.size() != 2 * out.size()) return false;
    for (std::size_t i = 0; i < out.size(); ++i) {
        const int high = HexDigitValue(text[2 * i]);
        const int low = HexDigitValue(text[2 * i + 1]);
        if (high < 0 || low < 0) {
            OPENSSL_cleanse(out.data(), out.size());
            return false;
        }
        out[i] = static_cast<uint8_t>(high * 16 + low);
    }
    return true;
}

ByteBuffer HexDecode(std::string_view text) {
    ByteBuffer bytes(text.size() / 2);
    if (!HexDecodeSecret(text, bytes)) bytes.clear();
    return bytes;
}

std::string Base64Encode(std::span<const uint8_t> bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        const std::size_t count = std::min<std::size_t>(3, bytes.size() - at);
        uint32_t group = 0;
        for (std::size_t i = 0; i < 3; ++i) group = group << 8 | (i < count ? bytes[at + i] : 0u);
        for (std::size_t i = 0; i < 4; ++i) {
            text.push_back(i <= count ? kBase64Alphabet[group >> (18 - 6 * i) & 63] : '=');
        }
    }
    return text;
}

}  // namespace brickfall
