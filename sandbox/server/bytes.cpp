#include "sandbox/server/bytes.h"

#include <openssl/evp.h>
#include <openssl/ripemd.h>
#include <openssl/sha.h>

#include <algorithm>

#include "base/text.h"

namespace brickfall::sandbox {
namespace {

constexpr std::string_view kBase58Digits = "123456789ABCDEFGHJKLMNPQRSTUVWXYZabcdefghijkmnopqrstuvwxyz";
constexpr std::size_t kAddressBytes = 1 + 20 + 4;
constexpr std::size_t kLongestAddress = 34;

constexpr uint8_t kOpDup = 0x76;
constexpr uint8_t kOpHash160 = 0xa9;
constexpr uint8_t kOpEqualVerify = 0x88;
constexpr uint8_t kOpCheckSig = 0xac;

}  // namespace

std::string ToHex(ByteView bytes) {
    std::string text;
    AppendHex(text, bytes);
    return text;
}

std::optional<Bytes> FromHex(std::string_view text) {
    if (text.size() % 2 != 0) return std::nullopt;
    Bytes bytes(text.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const int high = HexDigitValue(text[2 * i]);
        const int low = HexDigitValue(text[2 * i + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        bytes[i] = static_cast<uint8_t>(high * 16 + low);
    }
    return bytes;
}

std::optional<Bytes> FromBase64(std::string_view text) {
    if (text.empty() || text.size() % 4 != 0 || text.size() > 1024) return std::nullopt;
    const std::ptrdiff_t padding = text.ends_with("==") ? 2 : text.ends_with("=") ? 1 : 0;
    for (const char c : text.substr(0, text.size() - static_cast<std::size_t>(padding))) {
        if (!IsAsciiLetterOrDigit(c) && c != '+' && c != '/') return std::nullopt;
    }
    Bytes bytes(text.size() / 4 * 3);
    const int length = EVP_DecodeBlock(bytes.data(), ViewOf(text).data(),
                                       static_cast<int>(text.size()));  // padding as zeros
    if (length != static_cast<int>(bytes.size())) return std::nullopt;
    bytes.erase(bytes.end() - padding, bytes.end());
    return bytes;
}

Digest Sha256(ByteView bytes) {
    Digest digest{};
    SHA256(bytes.data(), bytes.size(), digest.data());
    return digest;
}

Digest DoubleSha256(ByteView bytes) { return Sha256(Sha256(bytes)); }

KeyHash HashOfKey(ByteView public_key) {
    const Digest inner = Sha256(public_key);
    KeyHash hash{};
    RIPEMD160(inner.data(), inner.size(), hash.data());
    return hash;
}

std::string IdText(const Digest& id) {
    Digest reversed = id;
    std::reverse(reversed.begin(), reversed.end());
    return ToHex(reversed);
}

std::optional<Digest> ParseIdText(std::string_view text) {
    const std::optional<Bytes> bytes = FromHex(text);
    if (!bytes || bytes->size() != Digest{}.size()) return std::nullopt;
    Digest id{};
    std::reverse_copy(bytes->begin(), bytes->end(), id.begin());
    return id;
}

std::string AddressText(const KeyHash& hash) {
    Bytes bytes = {0};
    PutBytes(bytes, hash);
    const Digest checksum = DoubleSha256(bytes);
    PutBytes(bytes, ByteView(checksum).first(4));

    std::string reversed;
    Bytes number = bytes;
    while (std::any_of(number.begin(), number.end(), [](uint8_t byte) { return byte != 0; })) {
        unsigned remainder = 0;
        for (uint8_t& byte : number) {
            const unsigned value = remainder * 256 + byte;
            byte = static_cast<uint8_t>(value / 58);
            remainder = value % 58;
        }
        reversed.push_back(kBase58Digits[remainder]);
    }
    for (std::size_t i = 0; i < bytes.size() && bytes[i] == 0; ++i) reversed.push_back(kBase58Digits[0]);
    return {reversed.rbegin(), reversed.rend()};
}

std::optional<KeyHash> ParseAddress(std::string_view text) {
    if (text.empty() || text.size() > kLongestAddress) return std::nullopt;
    std::array<uint8_t, kAddressBytes> bytes{};
    for (const char c : text) {
        const std::size_t digit = kBase58Digits.find(c);
        if (digit == std::string_view::npos) return std::nullopt;
        auto carry = static_cast<unsigned>(digit);
        for (std::size_t i = bytes.size(); i-- > 0;) {
            carry += 58U * bytes[i];
            bytes[i] = static_cast<uint8_t>(carry & 255);
            carry >>= 8;
        }
        if (carry != 0) return std::nullopt;
    }
    KeyHash hash{};
    std::copy_n(bytes.begin() + 1, hash.size(), hash.begin());
    // One text for each hash: the checksum, the version and the number of leading ones all come out of it.
    if (AddressText(hash) != text) return std::nullopt;
    return hash;
}

Bytes PayToKeyHash(const KeyHash& hash) {
    Bytes script = {kOpDup, kOpHash160, 20};
    PutBytes(script, hash);
    script.push_back(kOpEqualVerify);
    script.push_back(kOpCheckSig);
    return script;
}

std::optional<KeyHash> PaidKeyHash(ByteView locking_script) {
    if (locking_script.size() != 25) return std::nullopt;
    KeyHash hash{};
    std::copy_n(locking_script.begin() + 3, hash.size(), hash.begin());
    const Bytes expected = PayToKeyHash(hash);
    if (!std::equal(expected.begin(), expected.end(), locking_script.begin())) return std::nullopt;
    return hash;
}

void PutU32(Bytes& out, uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) out.push_back(static_cast<uint8_t>(value >> shift));
}

void PutU64(Bytes& out, uint64_t value) {
    for (int shift = 0; shift < 64; shift += 8) out.push_back(static_cast<uint8_t>(value >> shift));
}

void PutCompactSize(Bytes& out, uint64_t value) {
    const int width = value < 0xfd ? 1 : value <= 0xffff ? 2 : value <= 0xffffffff ? 4 : 8;
    if (width > 1) out.push_back(static_cast<uint8_t>(width == 2 ? 0xfd : width == 4 ? 0xfe : 0xff));
    for (int i = 0; i < width; ++i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

void PutBytes(Bytes& out, ByteView bytes) { out.insert(out.end(), bytes.begin(), bytes.end()); }

}  // namespace brickfall::sandbox
