#include "wallet/protocol/address.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <tuple>
#include <utility>

#include "base/secret.h"
#include "wallet/protocol/curve.h"
#include "wallet/protocol/encodings.h"

namespace brickfall {
namespace {

constexpr std::size_t kMinAddressLength = 26;
constexpr std::size_t kMaxAddressLength = 35;
constexpr std::size_t kAddressBytes = 25;      // version, hash, checksum
constexpr std::size_t kChecksummedBytes = 21;  // version and hash
constexpr uint8_t kAddressVersion = 0;

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

}  // namespace brickfall
