#include "tests/support/sealed_message.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/sha.h>

#include <cstdint>
#include <nlohmann/json.hpp>

#include "sandbox/server/bytes.h"
#include "wallet/protocol/curve.h"

namespace brickfall {
namespace {

constexpr std::size_t kPointAt = 4, kCipherAt = 37, kMacSize = 32;

const uint8_t* Bytes(std::string_view text) { return reinterpret_cast<const uint8_t*>(text.data()); }

std::string FromHex(std::string_view hex) {
    const sandbox::Bytes bytes = sandbox::FromHex(hex).value_or(sandbox::Bytes());
    return {bytes.begin(), bytes.end()};
}

std::optional<std::string> Decipher(const EVP_CIPHER* cipher, std::string_view key, std::string_view vector,
                                    std::string_view data) {
    const std::unique_ptr<EVP_CIPHER_CTX, OpensslFree<EVP_CIPHER_CTX_free>> context(EVP_CIPHER_CTX_new());
    std::string out(data.size() + 16, '\0');
    auto* const place = reinterpret_cast<uint8_t*>(out.data());
    int first = 0;
    int last = 0;
    EVP_DecryptInit_ex(context.get(), cipher, nullptr, Bytes(key), Bytes(vector));
    EVP_DecryptUpdate(context.get(), place, &first, Bytes(data), static_cast<int>(data.size()));
    if (EVP_DecryptFinal_ex(context.get(), place + first, &last) != 1) return std::nullopt;
    out.resize(static_cast<std::size_t>(first + last));
    return out;
}

// d times R, compressed; empty when R is no point.
std::string Multiply(std::string_view point_bytes, std::string_view private_hex) {
    BIGNUM* number = nullptr;
    BN_hex2bn(&number, std::string(private_hex).c_str());
    const BignumPtr scalar(number);
    const EcPointPtr point(EC_POINT_new(Secp256k1()));
    if (EC_POINT_oct2point(Secp256k1(), point.get(), Bytes(point_bytes), point_bytes.size(), nullptr) != 1) {
        return {};
    }
    const EcPointPtr product(EC_POINT_new(Secp256k1()));
    EC_POINT_mul(Secp256k1(), product.get(), nullptr, point.get(), scalar.get(), nullptr);
    std::string out(33, '\0');
    EC_POINT_point2oct(Secp256k1(), product.get(), POINT_CONVERSION_COMPRESSED,
                       reinterpret_cast<uint8_t*>(out.data()), out.size(), nullptr);
    return out;
}

std::string Sha512Of(std::string_view text) {
    std::string out(64, '\0');
    SHA512(Bytes(text), text.size(), reinterpret_cast<uint8_t*>(out.data()));
    return out;
}

std::string HmacSha256Of(std::string_view key, std::string_view text) {
    std::string out(kMacSize, '\0');
    unsigned int length = 0;
    HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), Bytes(text), text.size(),
         reinterpret_cast<uint8_t*>(out.data()), &length);
    return out;
}

// The data of a BIE1 value, as bytes; nothing when its authentication code does not stand, or when it holds
// no point or no whole blocks.
std::optional<std::string> OpenSealed(std::string_view sealed_hex, std::string_view private_hex) {
    const std::string sealed = FromHex(sealed_hex);
    if (sealed.size() < kCipherAt + 16 + kMacSize || sealed.size() % 16 != 5) return std::nullopt;
    const std::string_view covered = std::string_view(sealed).substr(0, sealed.size() - kMacSize);
    const std::string shared = Multiply(covered.substr(kPointAt, kCipherAt - kPointAt), private_hex);
    if (shared.empty()) return std::nullopt;
    const std::string keys = Sha512Of(shared);
    if (HmacSha256Of(keys.substr(32), covered) != sealed.substr(covered.size())) return std::nullopt;
    if (!covered.starts_with("BIE1")) return std::nullopt;
    return Decipher(EVP_aes_128_cbc(), keys.substr(16, 16), keys.substr(0, 16), covered.substr(kCipherAt));
}

// The text of one part under its content key; nothing when its padding is none.
std::optional<std::string> OpenPart(std::string_view part_hex, std::string_view content_key) {
    const std::string part = FromHex(part_hex);
    if (part.size() < 32 || content_key.size() != 32) return std::nullopt;
    return Decipher(EVP_aes_256_cbc(), content_key, part, std::string_view(part).substr(16));
}

}  // namespace

std::optional<std::string> OpenMessage(const nlohmann::json& row, const char* wrap_key,
                                       std::string_view private_hex) {
    const auto content_key = OpenSealed(row.value(wrap_key, ""), private_hex);
    if (!content_key) return std::nullopt;
    std::string text;
    for (int i = 1; row.contains("pmessage" + std::to_string(i)); ++i) {
        const auto part = OpenPart(row.value("pmessage" + std::to_string(i), ""), *content_key);
        if (!part) return std::nullopt;
        text += *part;
    }
    return text;
}

}  // namespace brickfall
