#include "messages/verification.h"

#include <array>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>

#include "base/clock.h"
#include "base/text.h"
#include "deployment/deployment.h"
#include "messages/row.h"
#include "net/http_client.h"
#include "net/url_text.h"
#include "wallet/json/json_numbers.h"
#include "wallet/protocol/curve.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/hashes.h"
#include "wallet/protocol/signed_message.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr std::size_t kCompactBytes = 64;  // r, then s

struct IdentityKeyCache {
    struct Entry {
        std::string public_key;
        int64_t fetched_at = 0;  // MonotonicNs
    };

    std::mutex lock;                       // a leaf, never held across a fetch
    std::map<std::string, Entry> entries;  // by name@domain in lower case; guarded by lock
};

IdentityKeyCache& identity_keys = *new IdentityKeyCache;

// "=" and white space count nothing wherever they stand; any other foreign character is a fault. Text of more
// bytes than a signature with its header is not decoded to its end.
std::optional<ByteBuffer> DecodeSignatureText(std::string_view text) {
    static constexpr std::string_view kAlphabet = kBase64Alphabet;
    ByteBuffer bytes;
    uint32_t bits = 0;
    int bit_count = 0;
    for (const char c : text) {
        if (c == '=' || Trim({&c, 1}).empty()) continue;
        const std::size_t value = kAlphabet.find(c);
        if (value == std::string_view::npos) return std::nullopt;
        bits = (bits << 6 | static_cast<uint32_t>(value)) & 0xFFFF;
        bit_count += 6;
        if (bit_count < 8) continue;
        bit_count -= 8;
        bytes.push_back(static_cast<uint8_t>(bits >> bit_count));
        if (bytes.size() > kCompactBytes + 1) return std::nullopt;
    }
    return bytes;
}

EcdsaSigPtr CompactSignature(std::string_view base64) {
    const std::optional<ByteBuffer> bytes = DecodeSignatureText(base64);
    if (!bytes || bytes->size() < kCompactBytes) return nullptr;
    const uint8_t* const r = bytes->data() + (bytes->size() - kCompactBytes);  // behind the header, if any
    BignumPtr r_number(BN_bin2bn(r, 32, nullptr));
    BignumPtr s_number(BN_bin2bn(r + 32, 32, nullptr));
    EcdsaSigPtr signature(ECDSA_SIG_new());
    if (!r_number || !s_number || !signature) return nullptr;
    if (ECDSA_SIG_set0(signature.get(), r_number.get(), s_number.get()) != 1) return nullptr;
    static_cast<void>(r_number.release());  // the signature owns them now
    static_cast<void>(s_number.release());
    return signature;
}

EcKeyPtr VerifyingKey(std::span<const uint8_t> bytes) {
    const EcPointPtr point = DecodePoint(bytes);
    EcKeyPtr key(EC_KEY_new());
    if (!point || !key || EC_KEY_set_group(key.get(), Secp256k1()) != 1 ||
        EC_KEY_set_public_key(key.get(), point.get()) != 1) {
        return nullptr;
    }
    return key;
}

// The published key of the signer must be the very key that the row carries.
bool IdentityHolds(std::string_view name, std::string_view paymail, std::string_view public_key_hex) {
    ByteBuffer bytes;
    if (!DecodeKeyHex(public_key_hex, bytes)) return false;
    const std::string carried = CanonicalPublicKey(bytes);
    return !carried.empty() && LookupIdentityKey(name, paymail) == carried;
}

// The same name at a foreign domain is somebody else.
bool NamesForeignDomain(std::string_view paymail, std::string_view name) {
    paymail = Trim(paymail);
    const std::size_t at = paymail.find('@');
    if (at == std::string_view::npos || at == 0 || at + 1 == paymail.size()) return false;
    const std::string local = NormalizeHandle(paymail.substr(0, at));
    return !local.empty() && Lower(local) == Lower(name) &&
           Lower(paymail.substr(at + 1)) != Lower(kPaymailDomain);
}

// Under which a name's key is kept, and which a host calls its handle.
std::string PaymailKey(std::string_view name) { return Lower(name) + "@" + Lower(kPaymailDomain); }

// A host that tells of somebody else has not answered. One that names nobody has: the URL named one name.
bool AnswersFor(const json& answer, const std::string& key) {
    const json* const handle = FindJsonKey(answer, "handle");
    if (handle == nullptr) return true;
    const std::string name = NormalizeHandle(JsonString(answer, "handle"));
    return (name.find('@') == std::string::npos ? PaymailKey(name) : Lower(name)) == key;
}

// Of a name that IdentityName gave.
std::string IdentityUrl(const std::string& identity_name) {
    const std::size_t at = identity_name.rfind('@');
    const std::string_view whole = identity_name;
    return UrlWithName(std::string(kApiBaseUrl) + "/api/bsvalias/id/", whole.substr(0, at), whole.substr(at))
        .value_or("");
}

// In its compressed form; empty when the host's answer has none for this name.
std::string PublishedKey(const json& answer, const std::string& identity_name) {
    ByteBuffer bytes;
    if (!AnswersFor(answer, identity_name) || !DecodeKeyHex(JsonString(answer, "pubkey", "publicKey"), bytes))
        return {};
    return CanonicalPublicKey(bytes);
}

std::string PublicKeyField(const json& row) { return JsonString(row, "pubkey", "publicKey"); }

std::string SignatureField(const json& row) { return JsonString(row, "sig", "signature"); }

bool VerifyWebMessage(const json& row) {
    const std::string handle = JsonString(row, "handle");
    const std::string public_key = PublicKeyField(row);
    const std::string signature = SignatureField(row);
    if (handle.empty() || public_key.empty() || signature.empty()) return false;
    for (const std::string_view key : {"origin", "path", "nonce"}) {
        if (JsonString(row, key).empty()) return false;
    }
    return VerifyCompactSignature(CanonicalMessage(row), public_key, signature) &&
           IdentityHolds(handle, "", public_key);
}

}  // namespace

bool VerifyMessage(const json& row) {
    if (!row.is_object()) return false;
    const std::string type = JsonString(row, "type");
    if (type == "web_gate" || type == "n_button") return VerifyWebMessage(row);

    const SignedMessage message = ReadSignedMessage(row);
    return message.fault == nullptr &&
           VerifyCompactSignature(message.text, message.public_key, message.signature) &&
           IdentityHolds(message.actor, message.paymail, message.public_key);
}

SignedMessage ReadSignedMessage(const json& row) {
    SignedMessage message;
    const auto refused = [&message](const char* fault) {
        message.fault = fault;
        return message;
    };
    const std::string protocol = JsonString(row, "protocol");
    if (protocol != "Cairn-Wire" && protocol != "OV-Art") return refused("an unknown protocol");
    const std::string type = JsonString(row, "type");
    std::string channel = JsonString(row, "channel");
    if (channel.empty()) channel = JsonString(row, "location");
    const std::string handle = JsonString(row, "handle");
    message.actor = JsonString(row, "actor");
    message.paymail = JsonString(row, "paymail");
    message.public_key = PublicKeyField(row);
    message.signature = SignatureField(row);
    if (type.empty() || handle.empty() || message.actor.empty()) return refused("no type or no name");
    if (channel.empty() && type != "whisper") return refused("no channel");
    if (message.public_key.empty()) return refused("no key");
    if (message.signature.empty()) return refused("no signature");
    const bool own_handle = type == "message" || type == "thread_reply" || type == "whisper";
    if (own_handle && Lower(NormalizeHandle(message.actor)) != Lower(NormalizeHandle(handle)))
        return refused("signed in another name");
    if (JsonInt(row, "ts") < 1) return refused("no time");
    message.text = CanonicalMessage(row);
    return message;
}

bool VerifyCompactSignature(std::string_view text, std::string_view public_key_hex,
                            std::string_view signature_base64) {
    ByteBuffer key_bytes;
    if (!DecodeKeyHex(public_key_hex, key_bytes)) return false;
    const EcdsaSigPtr signature = CompactSignature(signature_base64);
    if (!signature) return false;
    const EcKeyPtr key = VerifyingKey(key_bytes);
    if (!key) return false;
    const auto accepts = [&](const Hash256& digest) {
        return ECDSA_do_verify(digest.data(), static_cast<int>(digest.size()), signature.get(), key.get()) ==
               1;
    };
    // The first is the system's own; the other two take rows that were signed elsewhere.
    return accepts(SignedMessageDigest(text)) || accepts(Sha256Once(AsBytes(text))) ||
           accepts(Sha256Twice(AsBytes(text)));
}

bool DecodeKeyHex(std::string_view text, ByteBuffer& bytes) {
    bytes.clear();
    text = Trim(text);
    if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
    if (text.empty()) return true;
    bytes = HexDecode(text);
    return !bytes.empty();
}

std::string CanonicalPublicKey(std::span<const uint8_t> key_bytes) {
    if (key_bytes.size() == kCompressedKeyBytes && (key_bytes[0] == 2 || key_bytes[0] == 3)) {
        return HexEncode(key_bytes);
    }
    if (key_bytes.size() != kUncompressedKeyBytes || key_bytes[0] != 4) return {};
    const EcPointPtr point = DecodePoint(key_bytes);
    if (!point) return {};
    std::array<uint8_t, kCompressedKeyBytes> compressed;
    const std::size_t written = EC_POINT_point2oct(Secp256k1(), point.get(), POINT_CONVERSION_COMPRESSED,
                                                   compressed.data(), compressed.size(), nullptr);
    return written == compressed.size() ? HexEncode(compressed) : std::string();
}

std::string IdentityName(std::string_view handle, std::string_view paymail) {
    const std::string name = NormalizeHandle(handle);
    if (name.empty() || NamesForeignDomain(paymail, name) || !PathSegment(Lower(name))) return {};
    return PaymailKey(name);
}

std::string LookupIdentityKey(std::string_view handle, std::string_view paymail) {
    const std::string key = IdentityName(handle, paymail);
    if (key.empty()) return {};
    {
        const std::lock_guard lock(identity_keys.lock);
        const auto found = identity_keys.entries.find(key);
        if (found != identity_keys.entries.end() &&
            MonotonicNs() - found->second.fetched_at < kIdentityKeyTtl * 1'000'000'000) {
            return found->second.public_key;
        }
    }
    json answer;
    if (!FetchJsonStrict(IdentityUrl(key), answer, kShortAnswer)) return {};
    std::string public_key = PublishedKey(answer, key);
    if (public_key.empty()) return {};
    const std::lock_guard lock(identity_keys.lock);
    identity_keys.entries[key] = {public_key, MonotonicNs()};
    return public_key;
}

IdentityAnswer AskIdentityKey(const std::string& identity_name) {
    IdentityAnswer told;
    json answer;
    told.state = LookUpJson(IdentityUrl(identity_name), answer, told.error, kShortAnswer);
    if (told.state != LookUp::kFound) return told;
    told.public_key = PublishedKey(answer, identity_name);
    if (!told.public_key.empty()) return told;
    told.state = LookUp::kFailed;
    told.error = "an answer without a key of this name";
    return told;
}

void ClearIdentityKeyCache() {
    const std::lock_guard lock(identity_keys.lock);
    identity_keys.entries.clear();
}

}  // namespace brickfall
