#include "sandbox/server/architect.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/obj_mac.h>
#include <openssl/sha.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "base/files.h"
#include "base/text.h"
#include "deployment/deployment.h"
#include "sandbox/server/curve_ptr.h"
#include "sandbox/server/script_check.h"
#include "sandbox/server/script_push.h"
#include "sandbox/server/test_key.h"

namespace brickfall::sandbox {
namespace {

using nlohmann::json;

constexpr std::string_view kSealMagic = "BIE1";
constexpr std::size_t kPointSize = 33;
constexpr std::size_t kMacSize = 32;
constexpr std::size_t kBlockSize = 16;
constexpr std::size_t kContentKeySize = 32;
constexpr int kParts = 8;
constexpr int64_t kKeyTime = 1'780'000'000;  // Unix seconds; the pair is fixed, and so is its age

using CipherPtr = std::unique_ptr<EVP_CIPHER_CTX, FreeWith<EVP_CIPHER_CTX_free>>;

// The identity's key and the encryption key are two.
TestKey IdentityKey() { return TestKeyOf("the architect"); }
TestKey EncryptionKey() { return TestKeyOf("the architect, sealed"); }

std::string TextOf(const json& row, const std::string& key) {
    const auto found = row.find(key);
    return found != row.end() && found->is_string() ? found->get<std::string>() : std::string();
}

// A name as rows are signed with it: no blanks around, without its sign, in lower case.
std::string PlainHandle(std::string_view text) {
    text = Trim(text);
    if (!text.empty() && (text.front() == '@' || text.front() == '$')) text.remove_prefix(1);
    return Lower(Trim(text));
}

std::optional<Bytes> Decipher(const EVP_CIPHER* cipher, ByteView key, ByteView vector, ByteView data) {
    if (data.empty() || data.size() % kBlockSize != 0) return std::nullopt;
    const CipherPtr context(EVP_CIPHER_CTX_new());
    Bytes plain(data.size() + kBlockSize);
    int written = 0;
    int last = 0;
    if (!context || EVP_DecryptInit_ex(context.get(), cipher, nullptr, key.data(), vector.data()) != 1 ||
        EVP_DecryptUpdate(context.get(), plain.data(), &written, data.data(),
                          static_cast<int>(data.size())) != 1 ||
        EVP_DecryptFinal_ex(context.get(), plain.data() + written, &last) != 1) {
        return std::nullopt;
    }
    plain.resize(static_cast<std::size_t>(written + last));
    return plain;
}

// The point that both sides come to, compressed: the private key times the sender's passing key.
std::optional<Bytes> SharedPoint(const TestKey& key, ByteView passing) {
    const KeyPtr curve_key(EC_KEY_new_by_curve_name(NID_secp256k1));
    const BignumPtr number(BN_bin2bn(key.number.data(), static_cast<int>(key.number.size()), nullptr));
    if (!curve_key || !number) return std::nullopt;
    const EC_GROUP* const curve = EC_KEY_get0_group(curve_key.get());
    const PointPtr theirs(EC_POINT_new(curve));
    const PointPtr shared(EC_POINT_new(curve));
    Bytes bytes(kPointSize);
    if (!theirs || !shared ||
        EC_POINT_oct2point(curve, theirs.get(), passing.data(), passing.size(), nullptr) != 1 ||
        EC_POINT_mul(curve, shared.get(), nullptr, theirs.get(), number.get(), nullptr) != 1 ||
        EC_POINT_point2oct(curve, shared.get(), POINT_CONVERSION_COMPRESSED, bytes.data(), bytes.size(),
                           nullptr) != bytes.size()) {
        return std::nullopt;
    }
    return bytes;
}

// "BIE1", the passing key, AES-128-CBC blocks, and an HMAC-SHA-256 over all of that.
std::optional<Bytes> OpenSealed(const TestKey& key, ByteView sealed) {
    const std::size_t head = kSealMagic.size() + kPointSize;
    if (sealed.size() < head + kBlockSize + kMacSize) return std::nullopt;
    const ByteView magic = ViewOf(kSealMagic);
    if (!std::equal(magic.begin(), magic.end(), sealed.begin())) return std::nullopt;
    const auto shared = SharedPoint(key, sealed.subspan(magic.size(), kPointSize));
    if (!shared) return std::nullopt;
    uint8_t secrets[64];
    SHA512(shared->data(), shared->size(), secrets);
    const ByteView view(secrets);

    const ByteView covered = sealed.first(sealed.size() - kMacSize);
    uint8_t mac[kMacSize];
    if (HMAC(EVP_sha256(), secrets + 32, 32, covered.data(), covered.size(), mac, nullptr) == nullptr ||
        CRYPTO_memcmp(mac, sealed.data() + covered.size(), kMacSize) != 0) {
        return std::nullopt;
    }
    return Decipher(EVP_aes_128_cbc(), view.subspan(16, 16), view.first(16), covered.subspan(head));
}

// A part is its vector and AES-256-CBC blocks.
std::optional<Bytes> OpenPart(ByteView content_key, std::string_view part_hex) {
    const auto part = FromHex(part_hex);
    if (!part || part->size() < kBlockSize) return std::nullopt;
    const ByteView view(*part);
    return Decipher(EVP_aes_256_cbc(), content_key, view.first(kBlockSize), view.subspan(kBlockSize));
}

bool IsSignedByItsName(const Identities& identities, const json& row, int64_t ts) {
    const std::string pubkey = Lower(TextOf(row, "pubkey"));
    const std::string actor = PlainHandle(TextOf(row, "actor"));
    const auto identity = identities.find(actor);
    if (identity == identities.end() || Lower(identity->second.pubkey) != pubkey) return false;
    std::string channel = TextOf(row, "channel");
    if (channel.empty()) channel = TextOf(row, "location");
    const std::string text = "OV1|report|" + Lower(Trim(channel)) + "|" + PlainHandle(TextOf(row, "handle")) +
                             "|" + actor + "|" + std::to_string(ts) + "|" + Lower(TextOf(row, "enc_pub"));
    const auto key = FromHex(pubkey);
    const auto signature = FromBase64(TextOf(row, "sig"));
    return key && signature && VerifySignedText(text, *key, *signature);
}

// Fills the text, or says why it cannot be read.
std::string OpenReport(const Identities& identities, const json& row, Report& report) {
    const auto ts = row.find("ts");
    if (ts == row.end() || !ts->is_number_integer() || ts->get<int64_t>() < 1) return "it has no time";
    report.ts = ts->get<int64_t>();
    if (TextOf(row, "protocol") != "Cairn-Wire") return "it is of another protocol";
    if (!IsSignedByItsName(identities, row, report.ts)) return "it is not signed by the key of its name";
    const auto sealed = FromHex(TextOf(row, "wrap_to"));
    const auto content_key = sealed ? OpenSealed(EncryptionKey(), *sealed) : std::nullopt;
    if (!content_key || content_key->size() != kContentKeySize)
        return "its key is not sealed to the architect";
    for (int i = 1; i <= kParts; ++i) {
        const std::string part_hex = TextOf(row, "pmessage" + std::to_string(i));
        if (part_hex.empty()) break;
        const auto part = OpenPart(*content_key, part_hex);
        if (!part) return "part " + std::to_string(i) + " of its text does not open";
        report.text.append(part->begin(), part->end());
    }
    return report.text.empty() ? "it says nothing" : "";
}

// The row behind OP_RETURN, with or without OP_FALSE before it, if it is a report to the architect.
std::optional<json> ReportRow(ByteView script) {
    if (!script.empty() && script[0] == 0x00) script = script.subspan(1);
    if (script.size() < 2 || script[0] != 0x6a) return std::nullopt;
    script = script.subspan(1);
    uint8_t opcode = 0;
    const std::optional<Bytes> text = TakeOpcode(script, opcode);
    if (!text) return std::nullopt;
    json row = json::parse(text->begin(), text->end(), nullptr, /*allow_exceptions=*/false);
    if (!row.is_object() || TextOf(row, "type") != "report") return std::nullopt;
    return PlainHandle(TextOf(row, "to_handle")) == kArchitectHandle ? std::optional(std::move(row))
                                                                     : std::nullopt;
}

}  // namespace

PublishedIdentity ArchitectIdentity() {
    const TestKey key = IdentityKey();
    PublishedIdentity identity;
    identity.alias = kArchitectHandle;
    identity.pubkey = ToHex(key.public_key);
    identity.address = AddressText(key.hash);
    return identity;
}

bool WriteArchitectKey(const std::string& folder) {
    const std::string path = folder + "/encpub-" + kArchitectHandle + ".txt";
    const std::string content = ToHex(EncryptionKey().public_key) + "\n" + std::to_string(kKeyTime) + "\n";
    return MakeFolders(folder) && ReplaceFile(path, content);
}

std::optional<Report> ReadReport(const ParsedTx& tx, const Identities& identities) {
    for (const TxOutput& output : tx.outputs) {
        const std::optional<json> row = ReportRow(output.locking);
        if (!row) continue;
        Report report;
        report.txid = IdText(tx.id);
        report.handle = PlainHandle(TextOf(*row, "handle"));
        report.refusal = OpenReport(identities, *row, report);
        if (!report.refusal.empty()) report.text.clear();
        return report;
    }
    return std::nullopt;
}

}  // namespace brickfall::sandbox
