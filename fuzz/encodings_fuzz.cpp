// Any bytes as hexadecimal, base64, an address, a signature, a name in a URL: what is written is read back to
// itself, and a reader takes exactly what one written here takes.
#include <algorithm>
#include <cstring>

#include "base/text.h"
#include "fuzz/support.h"
#include "game/input_tape.h"
#include "messages/verification.h"
#include "net/url_text.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/encodings.h"

namespace {

using namespace brickfall;

// The bytes of digits of `width` bits each, the high ones first; nothing for a letter that is no digit.
std::optional<ByteBuffer> Digits(std::string_view text, std::string_view alphabet, unsigned width) {
    ByteBuffer bytes(text.size() * width / 8);
    for (std::size_t bit = 0; bit < text.size() * width; ++bit) {
        const std::size_t digit = alphabet.find(text[bit / width]);
        if (digit == std::string_view::npos) return std::nullopt;
        const std::size_t set = digit >> (width - 1 - bit % width) & 1;
        if (bit / 8 < bytes.size())
            bytes[bit / 8] = static_cast<uint8_t>(bytes[bit / 8] | set << (7 - bit % 8));
    }
    return bytes;
}

void CheckDigits(const std::string& text, const ByteBuffer& bytes) {
    constexpr std::string_view kHex = "0123456789abcdef";
    constexpr std::string_view kBase64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string base64 = Base64Encode(bytes);
    Require(base64.size() == (bytes.size() + 2) / 3 * 4);
    base64.resize(base64.size() - (3 - bytes.size() % 3) % 3);  // without "=", which is no digit
    Require(Digits(base64, kBase64, 6) == bytes && Digits(HexEncode(bytes), kHex, 4) == bytes);
    const auto wanted = text.size() % 2 == 0 ? Digits(Lower(text), kHex, 4) : std::nullopt;
    ByteBuffer exact(text.size() / 2), read;
    Require(HexDecode(text) == wanted.value_or(ByteBuffer()) &&
            IsHexText(text, exact.size() * 2) == !!wanted);
    Require(HexDecodeSecret(text, exact) == !!wanted && exact == wanted.value_or(ByteBuffer(exact.size())));
    Require(HexToBytes(text, read) == !!wanted && read == wanted.value_or(ByteBuffer()));
}

// None of the letters that end a segment or a value, and what a server reads from it is the text.
void CheckWritten(const std::string& written, const std::string& text) {
    std::string read;
    for (std::size_t i = 0; i < written.size(); i += written[i] == '%' ? 3 : 1) {
        const bool coded = written[i] == '%';
        Require(written[i] > 0x20 && written[i] < 0x7F && std::strchr("/\\?#", written[i]) == nullptr);
        read += coded ? static_cast<char>(HexDecode(written.substr(i + 1, 2)).at(0)) : written[i];
    }
    Require(read == text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const CostBound cost(6'000, size, 90);
    const std::string text(AsText(data, size));
    CheckDigits(text, {data, data + size});
    if (const auto segment = PathSegment(text)) CheckWritten(*segment, text);
    CheckWritten(QueryValue(text), text);
    Hash160 hash{}, again{};
    if (DecodeAddress(text, hash)) Require(Base58CheckEncode(hash) == text);
    std::copy_n(data, std::min(size, hash.size()), hash.begin());
    std::string address = Base58CheckEncode(hash);
    Require(DecodeAddress(address, again) && again == hash);
    char& letter = address[size % address.size()];
    letter = letter == '1' ? '2' : '1';
    Require(!DecodeAddress(address, again));
    const std::size_t third = size / 3;
    Require(
        !VerifyCompactSignature(text.substr(0, third), text.substr(third, third), text.substr(2 * third)));
    ByteBuffer key;
    Require(TapeHash(text).size() % 64 == 0);
    if (DecodeKeyHex(text, key)) Require(CanonicalPublicKey(key).size() % 66 == 0);
    return 0;
}
