#include "messages/verification.h"

#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/evp.h>

#include <array>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "base/text.h"
#include "messages/row.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/curve.h"

namespace brickfall {
namespace {

using nlohmann::json;
using sandbox::Fault;
using sandbox::FaultKind;
using sandbox::Service;

using Digest = std::array<uint8_t, 32>;

Digest Sha256(std::string_view text) {
    Digest digest;
    EVP_Digest(text.data(), text.size(), digest.data(), nullptr, EVP_sha256(), nullptr);
    return digest;
}

Digest Twice(std::string_view text) {
    const Digest once = Sha256(text);
    return Sha256({reinterpret_cast<const char*>(once.data()), once.size()});
}

// The frame of a Bitcoin signed message, for a text below 253 bytes.
Digest FramedDigest(const std::string& text) {
    return Twice(
        "\x18"
        "Bitcoin Signed Message:\n" +
        std::string(1, static_cast<char>(text.size())) + text);
}

std::string Base64(const std::string& bytes) {
    std::string text(4 * ((bytes.size() + 2) / 3), '\0');
    EVP_EncodeBlock(reinterpret_cast<uint8_t*>(text.data()), reinterpret_cast<const uint8_t*>(bytes.data()),
                    static_cast<int>(bytes.size()));
    return text;
}

std::string Padded32(const BIGNUM* number) {
    std::string bytes(32, '\0');
    BN_bn2binpad(number, reinterpret_cast<uint8_t*>(bytes.data()), 32);
    return bytes;
}

const char kOrderHex[] = "FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFEBAAEDCE6AF48A03BBFD25E8CD0364141";

// A signer of its own, on the library's high-level interface.
class Signer {
  public:
    Signer() {
        std::size_t size = 0;
        EVP_PKEY_get_octet_string_param(key_.get(), OSSL_PKEY_PARAM_PUB_KEY, point_.data(), point_.size(),
                                        &size);
    }

    std::string UncompressedHex() const { return Hex(point_); }

    std::string CompressedHex() const {
        std::vector<uint8_t> bytes(point_.begin(), point_.begin() + 33);
        bytes[0] = point_[64] % 2 == 0 ? 2 : 3;
        return Hex(bytes);
    }

    std::string Der(const Digest& digest) const {
        const std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> context(
            EVP_PKEY_CTX_new(key_.get(), nullptr), EVP_PKEY_CTX_free);
        std::string der(80, '\0');
        std::size_t size = der.size();
        EVP_PKEY_sign_init(context.get());
        EVP_PKEY_sign(context.get(), reinterpret_cast<uint8_t*>(der.data()), &size, digest.data(),
                      digest.size());
        der.resize(size);
        return der;
    }

    // r and s, 64 bytes; `mirrored` gives the twin signature with s on the other side of the order.
    std::string Compact(const Digest& digest, bool mirrored = false) const {
        const std::string der = Der(digest);
        const auto* at = reinterpret_cast<const uint8_t*>(der.data());
        const EcdsaSigPtr signature(d2i_ECDSA_SIG(nullptr, &at, static_cast<long>(der.size())));
        const BIGNUM* const s = ECDSA_SIG_get0_s(signature.get());
        BIGNUM* order = nullptr;
        BN_hex2bn(&order, kOrderHex);
        if (mirrored) {
            BN_sub(order, order, s);
        } else {
            BN_copy(order, s);
        }
        const std::string bytes = Padded32(ECDSA_SIG_get0_r(signature.get())) + Padded32(order);
        BN_free(order);
        return bytes;
    }

    void Sign(json& row) const {
        row["pubkey"] = CompressedHex();
        row["sig"] = Base64(Compact(FramedDigest(CanonicalMessage(row))));
    }

  private:
    template <typename Bytes>
    static std::string Hex(const Bytes& bytes) {
        std::string text;
        AppendHex(text, bytes);
        return text;
    }

    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key_{EVP_EC_gen("secp256k1"), EVP_PKEY_free};
    std::array<uint8_t, 65> point_{};
};

std::string Upper(std::string text) {
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

// Published examples of Bitcoin signed messages: the address, the text, and the signature with its recovery
// header. The keys are the ones recovered from the signatures; they hash to the addresses.
TEST(CompactSignature, AcceptsThePublishedExamples) {
    const struct {
        const char* address;
        const char* key;
        const char* text;
        const char* signature;
    } rows[] = {
        {"15CRxFdyRpGZLW9w8HnHvVduizdL5jKNbs",
         "03d2be3dddb497c7c4388cfcb941e14a222cf3e26fe5e2cc260da1821e60d26022", "Trust no one",
         "IPojfrX2dfPnH26UegfbGQQLrdK844DlHq5157/P6h57WyuS/Qsl+h/WSVGDF4MUi4rWSswW38oimDYfNNUBUOk="},
        {"11canuhp9X2NocwCq7xNrQYTmUgZAnLK3",
         "033c16080e9f3178bd908874a0eb72b0ba800ccbf784d0e4f047ef4460f0742dd4", "Trust me",
         "IIcaIENoYW5jZWxsb3Igb24gYnJpbmsgb2Ygc2Vjb25kIGJhaWxvdXQgZm9yIGJhbmtzIAaHRtbCeDZINyavx14="},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(AddressFromPublicKey(row.key), row.address);
        EXPECT_TRUE(VerifyCompactSignature(row.text, row.key, row.signature)) << row.text;
        EXPECT_FALSE(VerifyCompactSignature("Trust nobody", row.key, row.signature));
    }
}

TEST(CompactSignature, FormsOfTheSignature) {
    const Signer signer;
    const std::string text = "some text \xC3\xA9";
    const std::string rs = signer.Compact(FramedDigest(text));
    const std::string good = Base64(rs);
    const std::string zero(32, '\0');
    const struct {
        const char* name;
        std::string signature;
        bool accepted;
    } rows[] = {
        {"padded", good, true},
        {"unpadded", good.substr(0, 86), true},
        {"white space and padding anywhere", "\t " + good.substr(0, 5) + "=\r\n=" + good.substr(5) + "\v",
         true},
        {"header 27", Base64("\x1B" + rs), true},
        {"header 255", Base64("\xFF" + rs), true},
        {"header 0", Base64(std::string(1, '\0') + rs), true},
        {"high s", Base64(signer.Compact(FramedDigest(text), /*mirrored=*/true)), true},
        {"single hash", Base64(signer.Compact(Sha256(text))), true},
        {"double hash", Base64(signer.Compact(Twice(text))), true},
        {"other text", Base64(signer.Compact(FramedDigest("other"))), false},
        {"other key", Base64(Signer().Compact(FramedDigest(text))), false},
        {"63 bytes", Base64(rs.substr(0, 63)), false},
        {"66 bytes", Base64("ab" + rs), false},
        {"DER", Base64(signer.Der(FramedDigest(text))), false},
        {"foreign character", good + "-", false},
        {"foreign character far behind", good + std::string(100, 'A') + "*", false},
        {"NUL", good + std::string(1, '\0'), false},
        {"empty", "", false},
        {"r is 0", Base64(zero + rs.substr(32)), false},
        {"s is 0", Base64(rs.substr(0, 32) + zero), false},
        {"s beyond the order", Base64(rs.substr(0, 32) + std::string(32, '\xFF')), false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(VerifyCompactSignature(text, signer.CompressedHex(), row.signature), row.accepted)
            << row.name;
    }
}

TEST(CompactSignature, FormsOfTheKey) {
    const Signer signer;
    const std::string signature = Base64(signer.Compact(FramedDigest("")));
    const std::string key = signer.CompressedHex();
    const std::string full = signer.UncompressedHex();
    for (const std::string& good : {key, full, Upper(key), "0x" + key, " 0X" + key + "\n"}) {
        EXPECT_TRUE(VerifyCompactSignature("", good, signature)) << good;
    }
    std::string twin = key;
    twin[1] = key[1] == '2' ? '3' : '2';
    const std::string bad[] = {
        "",
        "0x",
        "00",  // the point at infinity
        std::string(66, '0'),
        "02" + std::string(64, 'f'),        // not below the field's prime
        "02" + std::string(63, '0') + "5",  // 5^3 + 7 is no square
        full.substr(0, 128) + (full.ends_with("00") ? "01" : "00"),
        key.substr(2),
        key + "00",
        key.substr(1),
        "g" + key.substr(1),
        "0x0x" + key,
        twin,
    };
    for (const std::string& text : bad) EXPECT_FALSE(VerifyCompactSignature("", text, signature)) << text;
}

TEST(Keys, CanonicalFormIsTheCompressedOne) {
    // The generator of SEC 2.
    const std::string x = "79be667ef9dcbbac55a06295ce870b07029bfcdb2dce28d959f2815b16f81798";
    const std::string y = "483ada7726a3c4655da4fbfc0e1108a8fd17b448a68554199c47d08ffb10d4b8";
    const std::pair<std::string, std::string> rows[] = {
        {"02" + x, "02" + x},
        {"0X" + Upper("03" + x), "03" + x},
        {"04" + x + y, "02" + x},
        {"04" + x + x, ""},
        {"06" + x + y, ""},
        {"04" + x, ""},
        {"02" + x + y, ""},
        {"00", ""},
        {"", ""},
    };
    for (const auto& [text, canonical] : rows) {
        ByteBuffer bytes{7};
        EXPECT_TRUE(DecodeKeyHex(text, bytes));
        EXPECT_EQ(CanonicalPublicKey(bytes), canonical) << text;
    }
    for (const char* const bad : {"0", "0x0", "0g", "02 03", "x0", "-1"}) {
        ByteBuffer bytes;
        EXPECT_FALSE(DecodeKeyHex(bad, bytes)) << bad;
    }
}

class Verification : public testing::Test {
  protected:
    Verification() {
        ClearIdentityKeyCache();
        Publish("ada", ada_);
    }
    ~Verification() override { ClearIdentityKeyCache(); }

    void Publish(const std::string& alias, const Signer& signer) {
        sandbox::PublishedIdentity identity;
        identity.alias = alias;
        identity.pubkey = signer.CompressedHex();
        services_.box.Publish(identity);
    }

    std::vector<std::string> Asked() { return services_.box.Requests(Service::kPaymail); }

    static json SoundRow() {
        return {{"type", "arcade_score"}, {"protocol", "Cairn-Wire"},
                {"location", "arcade"},   {"handle", "ada"},
                {"actor", "ada"},         {"ts", 1790000000},
                {"game", "brickfall"},    {"score", 4200},
                {"week", 1789948800},     {"entry", "ab"},
                {"pay_addr", "1x"},       {"tape_hash", "cd"}};
    }

    static json WebRow() {
        return {{"type", "web_gate"}, {"handle", "ada"}, {"origin", "o"}, {"path", "/"}, {"nonce", "n"}};
    }

    ManualClock clock_;
    SandboxFixture services_;
    Signer ada_;
};

TEST_F(Verification, TheShapeOfARow) {
    const struct {
        const char* name;
        json changes;  // a null removes the key
        bool accepted;
    } rows[] = {
        {"as it is", json::object(), true},
        {"art protocol", {{"protocol", "OV-Art"}}, true},
        {"other protocol", {{"protocol", "cairn-wire"}}, false},
        {"no protocol", {{"protocol", nullptr}}, false},
        {"no type", {{"type", ""}}, false},
        {"unknown type", {{"type", "x"}}, true},
        {"no handle", {{"handle", ""}}, false},
        {"no actor", {{"actor", nullptr}}, false},
        {"another player's handle", {{"handle", "bob"}}, true},
        {"another player's message", {{"handle", "bob"}, {"type", "message"}}, false},
        {"another player's reply", {{"handle", "bob"}, {"type", "thread_reply"}}, false},
        {"another player's whisper", {{"handle", "bob"}, {"type", "whisper"}}, false},
        {"own message", {{"handle", " @ADA"}, {"type", "message"}}, true},
        {"no channel", {{"location", ""}}, false},
        {"no channel, whispered", {{"location", nullptr}, {"type", "whisper"}}, true},
        {"channel", {{"location", nullptr}, {"channel", "c"}}, true},
        {"ts 0", {{"ts", 0}}, false},
        {"ts negative", {{"ts", -5}}, false},
        {"ts in the far future", {{"ts", 1e18}}, true},
        {"ts as text", {{"ts", "1"}}, true},
        {"ts beyond its range", {{"ts", 1e300}}, false},
        {"signer is unknown", {{"actor", "bob"}}, false},
        {"own paymail", {{"paymail", "ada@orvane.test"}}, true},
        {"foreign namesake", {{"paymail", "ada@elsewhere.test"}}, false},
        {"foreign other name", {{"paymail", "bob@elsewhere.test"}}, true},
    };
    for (const auto& row : rows) {
        json changed = SoundRow();
        for (const auto& [key, value] : row.changes.items()) {
            if (value.is_null()) {
                changed.erase(key);
            } else {
                changed[key] = value;
            }
        }
        ada_.Sign(changed);
        EXPECT_EQ(VerifyMessage(changed), row.accepted) << row.name;
    }
    for (const char* const text : {"null", "[]", "\"arcade_score\"", "7", "{}"}) {
        EXPECT_FALSE(VerifyMessage(json::parse(text))) << text;
    }
}

TEST_F(Verification, KeyAndSignatureHaveTwoNamesAndSeveralForms) {
    json row = SoundRow();
    ada_.Sign(row);
    json renamed = row;
    renamed["publicKey"] = row["pubkey"];
    renamed["signature"] = row["sig"];
    renamed.erase("pubkey");
    renamed["sig"] = 7;  // no text, so it counts as absent
    EXPECT_TRUE(VerifyMessage(renamed));
    for (const std::string& key : {ada_.UncompressedHex(), "0x" + Upper(ada_.CompressedHex())}) {
        json other = row;
        other["pubkey"] = key;
        EXPECT_TRUE(VerifyMessage(other)) << key;
    }
    for (const char* const key : {"pubkey", "sig"}) {
        json lacking = row;
        lacking.erase(key);
        EXPECT_FALSE(VerifyMessage(lacking)) << key;
        lacking[key] = "";
        EXPECT_FALSE(VerifyMessage(lacking)) << key;
    }
    for (const char* const key : {"score", "week"}) {
        json changed = row;
        changed[key] = row[key].get<int64_t>() + 1;
        EXPECT_FALSE(VerifyMessage(changed)) << key;
    }
}

TEST_F(Verification, ASoundSignatureOfAnUnpublishedKeyDoesNotCount) {
    const Signer mallory;
    json row = SoundRow();
    mallory.Sign(row);
    EXPECT_FALSE(VerifyMessage(row));
    Publish("mallory", mallory);
    EXPECT_FALSE(VerifyMessage(row)) << "signed as ada";
    row["actor"] = "mallory";
    mallory.Sign(row);
    EXPECT_TRUE(VerifyMessage(row));
}

TEST_F(Verification, WebRows) {
    json row = WebRow();
    ada_.Sign(row);
    EXPECT_TRUE(VerifyMessage(row)) << "without protocol, actor and time";
    row["paymail"] = "ada@elsewhere.test";
    EXPECT_TRUE(VerifyMessage(row)) << "a web row's paymail says nothing";
    for (const char* const key : {"handle", "origin", "path", "nonce"}) {
        json lacking = WebRow();
        lacking[key] = "";
        ada_.Sign(lacking);
        EXPECT_FALSE(VerifyMessage(lacking)) << key;
    }
    row = WebRow();
    row["type"] = "n_button";
    Signer().Sign(row);
    EXPECT_FALSE(VerifyMessage(row));
}

TEST_F(Verification, ABadSignatureNeverReachesTheNetwork) {
    json row = SoundRow();
    ada_.Sign(row);
    row["score"] = 4201;
    EXPECT_FALSE(VerifyMessage(row));
    row = SoundRow();
    row["paymail"] = " ada@elsewhere.test ";
    ada_.Sign(row);
    EXPECT_FALSE(VerifyMessage(row));
    EXPECT_TRUE(Asked().empty());
}

TEST_F(Verification, KeysAreKeptForHalfAnHour) {
    const std::vector<std::string> once = {"GET /api/bsvalias/id/ada@orvane.test"};
    EXPECT_EQ(LookupIdentityKey(" @Ada", ""), ada_.CompressedHex());
    clock_.AdvanceMs(1'799'999);
    EXPECT_EQ(LookupIdentityKey("ada", "ADA@ORVANE.TEST"), ada_.CompressedHex());
    EXPECT_EQ(Asked(), once);
    clock_.AdvanceMs(1);
    EXPECT_EQ(LookupIdentityKey("ada", ""), ada_.CompressedHex());
    EXPECT_EQ(Asked().size(), 2u);

    clock_.AdvanceMs(1'800'000);
    services_.box.AddFault(Service::kPaymail, Fault{});
    EXPECT_EQ(LookupIdentityKey("ada", ""), "") << "a stale key is no fall-back";
    services_.box.ClearFaults();
    EXPECT_EQ(LookupIdentityKey("ada", ""), ada_.CompressedHex()) << "a failure is not kept";
}

TEST_F(Verification, WhatMayBeAskedFor) {
    const std::string key = ada_.CompressedHex();
    const struct {
        const char* handle;
        const char* paymail;
        bool found;
    } rows[] = {
        {"", "", false},          {" @ ", "ada@orvane.test", false},
        {"nobody", "", false},    {"ada", "ada@Orvane.Test", true},
        {"ada", "ada@", true},  // no paymail, so it says nothing
        {"ada", "@x", true},      {"ada", "ada", true},
        {"ada", "@ada@x", true},  // begins with "@": nothing in front of it
        {"ada", "$ADA@x", false}, {"ada", "ada@orvane.test@x", false},
        {"ada", "bob@x", true},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(LookupIdentityKey(row.handle, row.paymail), row.found ? key : "")
            << row.handle << " " << row.paymail;
    }
}

TEST_F(Verification, AnswersOfTheService) {
    const std::string key = ada_.CompressedHex();
    const struct {
        int status;
        std::string body;
        bool found;
    } rows[] = {
        {200, json{{"pubkey", key}}.dump(), true},
        {200, json{{"publicKey", "0x" + Upper(key)}}.dump(), true},
        {200, json{{"pubkey", 7}, {"publicKey", ada_.UncompressedHex()}}.dump(), true},
        {201, json{{"pubkey", key}}.dump(), false},
        {200, json{{"pubkey", ""}, {"publicKey", key}}.dump(), false},
        {200, json{{"pubkey", key.substr(2)}}.dump(), false},
        {200, json{{"pubkey", "zz"}}.dump(), false},
        {200, json::array({key}).dump(), false},
        {200, "7", false},
        {200, "\"" + key + "\"", false},
        {200, "<html>", false},
        {200, "", false},
        {429, "", false},
    };
    for (const auto& row : rows) {
        ClearIdentityKeyCache();
        services_.box.ClearFaults();
        Fault fault;
        fault.status = row.status;
        fault.body = row.body;
        services_.box.AddFault(Service::kPaymail, fault);
        EXPECT_EQ(LookupIdentityKey("ada", ""), row.found ? key : "") << row.status << " " << row.body;
    }
}

}  // namespace
}  // namespace brickfall
