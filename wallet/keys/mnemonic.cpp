#include "wallet/keys/mnemonic.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "base/secret.h"
#include "base/text.h"
#include "wallet/keys/bip39_words.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/hashes.h"

namespace brickfall {
namespace {

constexpr std::size_t kWordCount = 12;
constexpr std::size_t kMaxWordLength = 8;  // of the list
constexpr std::size_t kEntropyBytes = 16;
constexpr std::string_view kSeedSalt = "mnemonic";  // the wallet has no pass phrase
constexpr int kSeedRounds = 2048;

// The place of a word of either case in the list, or -1.
int WordValue(std::string_view word) {
    if (word.size() > kMaxWordLength) return -1;
    std::array<char, kMaxWordLength> folded{};
    const WipeAtExit wipe_word(folded);
    std::transform(word.begin(), word.end(), folded.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    const std::string_view wanted(folded.data(), word.size());
    const auto found = std::lower_bound(kBip39Words.begin(), kBip39Words.end(), wanted);
    if (found == kBip39Words.end() || *found != wanted) return -1;
    return static_cast<int>(found - kBip39Words.begin());
}

}  // namespace

bool ComputeSeed() {
    const SecretString& words = wallet_keys.mnemonic;
    const std::span<const uint8_t> salt = AsBytes(kSeedSalt);
    wallet_keys.seed_cached =
        PKCS5_PBKDF2_HMAC(words.data(), static_cast<int>(words.size()), salt.data(),
                          static_cast<int>(salt.size()), kSeedRounds, EVP_sha512(),
                          static_cast<int>(wallet_keys.seed.size()), wallet_keys.seed.data()) == 1;
    return wallet_keys.seed_cached;
}

bool ValidateMnemonic() {
    // 132 bits: the entropy, then the checksum in the top half of the last byte.
    std::array<uint8_t, kEntropyBytes + 1> packed{};
    const WipeAtExit wipe_packed(packed);
    std::string_view rest = wallet_keys.mnemonic;
    std::size_t count = 0;
    while (!(rest = StripFront(rest, " \t")).empty()) {
        const std::string_view word = rest.substr(0, rest.find_first_of(" \t"));
        rest.remove_prefix(word.size());
        const int value = WordValue(word);
        if (value < 0 || count == kWordCount) return false;
        for (std::size_t bit = 0; bit < 11; ++bit) {
            const std::size_t at = count * 11 + bit;
            const int set = value >> (10 - bit) & 1;
            packed[at / 8] = static_cast<uint8_t>(packed[at / 8] | set << (7 - at % 8));
        }
        ++count;
    }
    if (count != kWordCount) return false;
    const uint8_t checksum = Sha256Once(std::span(packed).first<kEntropyBytes>())[0];
    return checksum >> 4 == packed[kEntropyBytes] >> 4;
}

}  // namespace brickfall
