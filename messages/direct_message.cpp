#include "messages/direct_message.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <system_error>
#include <utility>

#include "base/clock.h"
#include "base/files.h"
#include "base/text.h"
#include "messages/row.h"
#include "wallet/link/paymail_sync.h"
#include "wallet/protocol/curve.h"
#include "wallet/protocol/encodings.h"
#include "wallet/session/encryption_key.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/shared_store.h"

namespace brickfall {
namespace {

constexpr char kKeyFolder[] = "userinfo";
constexpr int kLayoutVersion = 2;
constexpr std::string_view kSealMagic = "BIE1";
constexpr std::size_t kBlockBytes = 16;
constexpr std::size_t kMacBytes = 32;
constexpr int kEphemeralDraws = 8;

using CipherPtr = std::unique_ptr<EVP_CIPHER_CTX, OpensslFree<EVP_CIPHER_CTX_free>>;
using PrivateScalar = std::array<uint8_t, 32>;
using ContentKey = std::array<uint8_t, 32>;

struct EncryptionKeyCache {
    std::mutex enc_key_mutex;
    std::string handle;        // whose pair this is
    std::string public_key;    // guarded by enc_key_mutex, as are the others
    SecretString private_key;  // for the rest of the process
};

struct EncryptionKey {
    std::string public_key;  // canonical
    int64_t ts = 0;          // Unix seconds at which it was last known good
};

struct EncryptionKeyDirectory {
    std::mutex enc_directory_mutex;                // a leaf, never held across a file operation
    std::map<std::string, EncryptionKey> entries;  // by handle in lower case; guarded by the mutex
};

EncryptionKeyCache& own_keys = *new EncryptionKeyCache;
EncryptionKeyDirectory& directory = *new EncryptionKeyDirectory;

std::string KeyName(std::string_view handle) { return Lower(NormalizeHandle(handle)); }

// Nothing for a name that would lead to a file other than its own.
std::optional<std::string> KeyFilePath(const std::string& name) {
    if (name.find_first_of(std::string_view("/\0", 2)) != std::string::npos) return std::nullopt;
    return std::string(kKeyFolder) + "/encpub-" + name + ".txt";
}

EncryptionKey ReadEncryptionKeyFile(const std::string& name) {
    const std::optional<std::string> path = KeyFilePath(name);
    const std::optional<std::string> content = path ? ReadFile(*path) : std::nullopt;
    if (!content) return {};
    std::string_view rest = *content;
    const auto take_line = [&rest] {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        return line;
    };
    EncryptionKey key;
    key.public_key = CanonicalEncryptionKey(take_line());
    if (key.public_key.empty()) return {};
    const std::string_view ts = Trim(take_line());
    const auto read = std::from_chars(ts.data(), ts.data() + ts.size(), key.ts);
    if (read.ec != std::errc() || read.ptr != ts.data() + ts.size()) key.ts = 0;
    return key;
}

void WriteEncryptionKeyFile(const std::string& name, const EncryptionKey& key) {
    const std::optional<std::string> path = KeyFilePath(name);
    if (!path || !MakeFolders(kKeyFolder)) return;
    WriteStoreFile(*path, key.public_key + "\n" + std::to_string(key.ts) + "\n");
}

ByteBuffer DecodeKeyText(std::string_view text) {
    std::string digits;
    for (const char c : Lower(text)) {
        if (!Trim({&c, 1}).empty()) digits += c;
    }
    if (digits.starts_with("0x")) digits.erase(0, 2);
    return HexDecode(digits);
}

bool Draw(std::span<uint8_t> out) { return RAND_bytes(out.data(), static_cast<int>(out.size())) == 1; }

// With PKCS#7 padding; empty on failure, and never else.
ByteBuffer Encipher(const EVP_CIPHER* cipher, std::span<const uint8_t> key, std::span<const uint8_t> vector,
                    std::span<const uint8_t> data) {
    const CipherPtr context(EVP_CIPHER_CTX_new());
    if (!context || data.size() > std::numeric_limits<int>::max() - 2 * kBlockBytes) return {};
    ByteBuffer out(data.size() + kBlockBytes);
    int written = 0;
    int last = 0;
    if (EVP_EncryptInit_ex(context.get(), cipher, nullptr, key.data(), vector.data()) != 1 ||
        EVP_EncryptUpdate(context.get(), out.data(), &written, data.data(), static_cast<int>(data.size())) !=
            1 ||
        EVP_EncryptFinal_ex(context.get(), out.data() + written, &last) != 1) {
        return {};
    }
    out.resize(static_cast<std::size_t>(written + last));
    return out;
}

// A draw of zero is no private key, nor is one beyond the group's order.
bool DrawKeyPair(PrivateScalar& private_key, CompressedPoint& public_key) {
    for (int i = 0; i < kEphemeralDraws; ++i) {
        if (!Draw(private_key)) return false;
        if (CompressedPublicKey(private_key, public_key)) return true;
    }
    return false;
}

bool SharedPoint(const PrivateScalar& private_key, std::span<const uint8_t> public_key,
                 CompressedPoint& shared) {
    const EC_GROUP* const group = Secp256k1();
    const BignumPtr scalar = SecretNumber(private_key);
    const EcPointPtr point = DecodePoint(public_key);
    if (!scalar || !point) return false;
    BN_set_flags(scalar.get(), BN_FLG_CONSTTIME);
    if (EC_POINT_mul(group, point.get(), nullptr, point.get(), scalar.get(), nullptr) != 1) return false;
    return EC_POINT_point2oct(group, point.get(), POINT_CONVERSION_COMPRESSED, shared.data(), shared.size(),
                              nullptr) == shared.size();
}

bool AppendMac(std::span<const uint8_t> key, ByteBuffer& sealed) {
    std::array<uint8_t, kMacBytes> mac;
    unsigned int length = 0;
    if (HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), sealed.data(), sealed.size(), mac.data(),
             &length) == nullptr ||
        length != mac.size()) {
        return false;
    }
    sealed.insert(sealed.end(), mac.begin(), mac.end());
    return true;
}

void ForgetOwnKeys() {
    own_keys.handle.clear();
    own_keys.public_key.clear();
    WipeString(own_keys.private_key);
}

// The wallet's name without its domain.
std::string OwnHandle() {
    const std::string paymail = PublishedHandle();
    return paymail.substr(0, paymail.rfind('@'));
}

}  // namespace

bool EncryptDirectMessage(const MessageParts& parts, std::string_view my_handle, std::string_view to_handle,
                          nlohmann::json& row, std::string& error) {
    error.clear();
    if (row.is_null()) row = nlohmann::json::object();  // as yet without a field
    if (!row.is_object()) return false;
    const auto fail = [&error](std::string text) {
        error = std::move(text);
        return false;
    };
    std::string my_key;
    SecretString my_private_key;
    if (!LoadEncryptionKeys(my_key, my_private_key, error)) {
        return error.empty() ? fail("could not load Pouch encryption keys") : false;
    }
    StoreEncryptionKey(my_handle, my_key, UnixSeconds());
    const std::string to_key = FindEncryptionKey(to_handle);
    if (to_key.empty()) {
        return fail("no encryption key on file for @" + NormalizeHandle(to_handle) +
                    ". They need to join a channel once with this version so their key is published.");
    }
    ContentKey content_key{};
    const WipeAtExit wipe_content_key(content_key);
    if (!Draw(content_key)) return fail("RNG failed");
    std::string wrap_to;
    std::string wrap_me;
    if (!SealToKey(content_key, to_key, wrap_to) || !SealToKey(content_key, my_key, wrap_me)) {
        return fail("failed to wrap direct-message key");
    }
    for (std::size_t i = 0; i < parts.size() && !parts[i].empty(); ++i) {
        std::string sealed = EncryptPart(parts[i], content_key);
        if (sealed.empty()) return fail("failed to encrypt direct message");
        row["pmessage" + std::to_string(i + 1)] = std::move(sealed);
    }
    row["enc_v"] = kLayoutVersion;
    row["enc_pub"] = std::move(my_key);
    row["wrap_to"] = std::move(wrap_to);
    row["wrap_me"] = std::move(wrap_me);
    return true;
}

bool LoadEncryptionKeys(std::string& public_hex, SecretString& private_hex, std::string& error) {
    const std::lock_guard lock(own_keys.enc_key_mutex);
    const std::string handle = OwnHandle();
    if (handle.empty() || !IsConnected()) {
        ForgetOwnKeys();
        error = "Connect Pouch";
        return false;
    }
    const bool cached =
        !own_keys.public_key.empty() && !own_keys.private_key.empty() && own_keys.handle == handle;
    if (!cached) {
        ForgetOwnKeys();
        if (!DeriveEncryptionKey(own_keys.public_key, own_keys.private_key, error)) return false;
        own_keys.handle = handle;
        StoreEncryptionKey(handle, own_keys.public_key, UnixSeconds());
    }
    public_hex = own_keys.public_key;
    private_hex = own_keys.private_key;
    return true;
}

void StoreEncryptionKey(std::string_view handle, std::string_view public_key, int64_t ts) {
    const std::string name = KeyName(handle);
    const EncryptionKey key{CanonicalEncryptionKey(public_key), ts};
    if (name.empty() || key.public_key.empty()) return;
    {
        const std::lock_guard lock(directory.enc_directory_mutex);
        EncryptionKey& entry = directory.entries[name];
        const bool known = !entry.public_key.empty();
        if (known && entry.ts > ts) return;
        if (known && entry.ts == ts && entry.public_key == key.public_key) return;
        entry = key;
    }
    WriteEncryptionKeyFile(name, key);
}

std::string FindEncryptionKey(std::string_view handle) {
    const std::string name = KeyName(handle);
    if (name.empty()) return {};
    const EncryptionKey from_file = ReadEncryptionKeyFile(name);
    const std::lock_guard lock(directory.enc_directory_mutex);
    const auto found = directory.entries.find(name);
    const bool known = found != directory.entries.end();
    if (!from_file.public_key.empty() && (!known || from_file.ts >= found->second.ts)) {
        directory.entries[name] = from_file;
        return from_file.public_key;
    }
    return known ? found->second.public_key : std::string();
}

std::string CanonicalEncryptionKey(std::string_view text) {
    const ByteBuffer bytes = DecodeKeyText(text);
    return bytes.size() == kCompressedKeyBytes ? HexEncode(bytes) : std::string();
}

bool SealToKey(std::span<const uint8_t> data, std::string_view public_key_hex, std::string& sealed_hex) {
    sealed_hex.clear();
    const ByteBuffer recipient = DecodeKeyText(public_key_hex);
    if (recipient.size() != kCompressedKeyBytes && recipient.size() != kUncompressedKeyBytes) return false;

    PrivateScalar ephemeral{};
    const WipeAtExit wipe_ephemeral(ephemeral);
    CompressedPoint shared{};
    const WipeAtExit wipe_shared(shared);
    CompressedPoint ephemeral_public;
    if (!DrawKeyPair(ephemeral, ephemeral_public) || !SharedPoint(ephemeral, recipient, shared)) return false;

    std::array<uint8_t, SHA512_DIGEST_LENGTH> derived{};  // vector, cipher key, authentication key
    const WipeAtExit wipe_derived(derived);
    if (SHA512(shared.data(), shared.size(), derived.data()) == nullptr) return false;
    const std::span<const uint8_t> keys(derived);
    const ByteBuffer enciphered =
        Encipher(EVP_aes_128_cbc(), keys.subspan(16, 16), keys.first(kBlockBytes), data);
    if (enciphered.empty()) return false;

    ByteBuffer sealed(kSealMagic.begin(), kSealMagic.end());
    sealed.insert(sealed.end(), ephemeral_public.begin(), ephemeral_public.end());
    sealed.insert(sealed.end(), enciphered.begin(), enciphered.end());
    if (!AppendMac(keys.subspan(32), sealed)) return false;
    sealed_hex = HexEncode(sealed);
    return true;
}

std::string EncryptPart(std::string_view text, std::span<const uint8_t, 32> content_key) {
    std::array<uint8_t, kBlockBytes> vector;
    if (!Draw(vector)) return {};
    const ByteBuffer enciphered = Encipher(EVP_aes_256_cbc(), content_key, vector, AsBytes(text));
    return enciphered.empty() ? std::string() : HexEncode(vector) + HexEncode(enciphered);
}

void ClearEncryptionKeys() {
    {
        const std::lock_guard lock(own_keys.enc_key_mutex);
        ForgetOwnKeys();
    }
    const std::lock_guard lock(directory.enc_directory_mutex);
    directory.entries.clear();
}

}  // namespace brickfall
