#include "wallet/protocol/encodings.h"

#include <openssl/ripemd.h>
#include <openssl/sha.h>

#include <algorithm>
#include <tuple>
#include <utility>

#include "base/text.h"
#include "wallet/protocol/curve.h"

namespace brickfall {
namespace {

constexpr std::size_t kMinAddressLength = 26;
constexpr std::size_t kMaxAddressLength = 35;
constexpr std::size_t kAddressBytes = 25;      // version, hash, checksum
constexpr std::size_t kChecksummedBytes = 21;  // version and hash
constexpr uint8_t kAddressVersion = 0;

constexpr uint8_t kOpDup = 118;
constexpr uint8_t kOpHash160 = 169;
constexpr uint8_t kOpEqualVerify = 136;
constexpr uint8_t kOpCheckSig = 172;
constexpr uint8_t kOpPushData1 = 76;

void AppendLe(ByteBuffer& out, uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

// Divides a big-endian number in place, drops the quotient's leading zero bytes and gives the remainder.
uint8_t DivideBy58(ByteBuffer& number) {
    ByteBuffer quotient;
    quotient.reserve(number.size());
    uint32_t remainder = 0;
    for (const uint8_t byte : number) {
        const uint32_t part = remainder * 256 + byte;
        const auto digit = static_cast<uint8_t>(part / 58);
        remainder = part % 58;
        if (!quotient.empty() || digit != 0) quotient.push_back(digit);
    }
    number = std::move(quotient);
    return static_cast<uint8_t>(remainder);
}

// Multiplies a big-endian number by 58 in place and adds a digit.
void MultiplyBy58(ByteBuffer& number, uint32_t digit) {
    uint32_t carry = digit;
    for (auto byte = number.rbegin(); byte != number.rend(); ++byte) {
        carry += uint32_t{*byte} * 58;
        *byte = static_cast<uint8_t>(carry);
        carry >>= 8;
    }
    if (carry != 0) number.insert(number.begin(), static_cast<uint8_t>(carry));
}

}  // namespace

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

bool PublicKeyFromPrivate(std::string_view private_hex, std::string& public_hex) {
    public_hex.clear();
    std::array<uint8_t, 32> key;
    const WipeAtExit wipe_key(key);
    CompressedPoint point;
    if (!HexDecodeSecret(private_hex, key) || !CompressedPublicKey(key, point)) return false;
    public_hex = HexEncode(point);
    return true;
}

std::string AddressFromPublicKey(std::string_view public_hex) {
    const ByteBuffer bytes = HexDecode(public_hex);
    if (bytes.size() != std::tuple_size_v<CompressedPoint>) return {};
    return Base58CheckEncode(Hash160Of(bytes));
}

std::string Base58CheckEncode(const Hash160& hash) {
    ByteBuffer number{kAddressVersion};
    number.insert(number.end(), hash.begin(), hash.end());
    const Hash256 checksum = Sha256Twice(number);
    number.insert(number.end(), checksum.begin(), checksum.begin() + 4);

    const auto first_digit = std::find_if(number.begin(), number.end(), [](uint8_t b) { return b != 0; });
    const auto leading_zeros = static_cast<std::size_t>(first_digit - number.begin());
    std::string text;
    number.erase(number.begin(), first_digit);
    while (!number.empty()) text.push_back(kBase58Alphabet[DivideBy58(number)]);
    text.append(leading_zeros, kBase58Alphabet[0]);
    std::reverse(text.begin(), text.end());
    return text;
}

bool DecodeAddress(std::string_view address, Hash160& hash) {
    if (address.size() < kMinAddressLength || address.size() > kMaxAddressLength) return false;
    constexpr std::string_view kAlphabet(kBase58Alphabet);
    ByteBuffer number{0};
    for (const char c : address) {
        const std::size_t digit = kAlphabet.find(c);
        if (digit == std::string_view::npos) return false;
        MultiplyBy58(number, static_cast<uint32_t>(digit));
    }
    const auto first_digit = std::find_if(number.begin(), number.end(), [](uint8_t b) { return b != 0; });
    number.erase(number.begin(), first_digit);
    const std::size_t leading_ones = std::min(address.find_first_not_of(kAlphabet[0]), address.size());
    number.insert(number.begin(), leading_ones, 0);

    if (number.size() != kAddressBytes || number[0] != kAddressVersion) return false;
    const Hash256 checksum = Sha256Twice(std::span(number).first(kChecksummedBytes));
    if (!std::equal(number.begin() + kChecksummedBytes, number.end(), checksum.begin())) return false;
    std::copy_n(number.begin() + 1, hash.size(), hash.begin());
    return true;
}

void AppendU32Le(ByteBuffer& out, uint32_t value) { AppendLe(out, value, 4); }

void AppendU64Le(ByteBuffer& out, uint64_t value) { AppendLe(out, value, 8); }

void AppendVarInt(ByteBuffer& out, uint64_t value) {
    if (value < 253) {
        out.push_back(static_cast<uint8_t>(value));
    } else if (value <= 0xFFFF) {
        out.push_back(253);
        AppendLe(out, value, 2);
    } else if (value <= 0xFFFFFFFF) {
        out.push_back(254);
        AppendU32Le(out, static_cast<uint32_t>(value));
    } else {
        out.push_back(255);
        AppendU64Le(out, value);
    }
}

void AppendPushData(ByteBuffer& out, std::span<const uint8_t> data) {
    const std::size_t length = data.size();
    if (length < kOpPushData1) {
        AppendLe(out, length, 1);
    } else if (length <= 0xFF) {
        out.push_back(kOpPushData1);
        AppendLe(out, length, 1);
    } else if (length <= 0xFFFF) {
        out.push_back(kOpPushData1 + 1);
        AppendLe(out, length, 2);
    } else {
        out.push_back(kOpPushData1 + 2);
        AppendU32Le(out, static_cast<uint32_t>(length));
    }
    out.insert(out.end(), data.begin(), data.end());
}

ByteBuffer P2pkhScript(const Hash160& hash) {
    ByteBuffer script{kOpDup, kOpHash160};
    AppendPushData(script, hash);
    script.insert(script.end(), {kOpEqualVerify, kOpCheckSig});
    return script;
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
