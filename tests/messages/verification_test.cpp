#include "messages/verification.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "sandbox/server/test_key.h"
#include "tests/support/signed_rows.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/curve.h"
#include "wallet/protocol/ecdsa.h"
#include "wallet/protocol/encodings.h"

namespace brickfall {
namespace {

using nlohmann::json;
using sandbox::Service;
using sandbox::TestKey;
using sandbox::ViewOf;

// The private key 1, whose public key is the generator of SEC 2.
const std::string kX = "79be667ef9dcbbac55a06295ce870b07029bfcdb2dce28d959f2815b16f81798";
const std::string kY = "483ada7726a3c4655da4fbfc0e1108a8fd17b448a68554199c47d08ffb10d4b8";
const TestPlayer kAda{"ada", std::string(63, '0') + "1", "02" + kX, "1BgGZ9tcN4rm9KBzDn7KprQz87SZ26SAMH"};

TestKey KeyOfAda() {
    TestKey key;
    key.number.back() = 1;
    return key;
}

std::string Base64(const std::string& bytes) { return Base64Encode(ViewOf(bytes)); }

// Of a signature in DER, r and s, 64 bytes.
std::string Compact(const sandbox::Bytes& der) {
    const uint8_t* at = der.data();
    const EcdsaSigPtr signature(d2i_ECDSA_SIG(nullptr, &at, static_cast<long>(der.size())));
    std::string bytes(64, '\0');
    auto* const out = reinterpret_cast<uint8_t*>(bytes.data());
    BN_bn2binpad(ECDSA_SIG_get0_r(signature.get()), out, 32);
    BN_bn2binpad(ECDSA_SIG_get0_s(signature.get()), out + 32, 32);
    return bytes;
}

// The twin of an s, on the other side of the order.
std::string Mirrored(const std::string& s) {
    const BignumPtr number(BN_bin2bn(ViewOf(s).data(), 32, nullptr));
    std::string bytes(32, '\0');
    BN_sub(number.get(), EC_GROUP_get0_order(Secp256k1()), number.get());
    BN_bn2binpad(number.get(), reinterpret_cast<uint8_t*>(bytes.data()), 32);
    return bytes;
}

std::string Upper(std::string text) {
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

// A published example of a Bitcoin signed message, with the key that is recovered from its signature.
TEST(CompactSignature, AcceptsThePublishedExample) {
    const std::string key = "03d2be3dddb497c7c4388cfcb941e14a222cf3e26fe5e2cc260da1821e60d26022";
    const std::string signature =
        "IPojfrX2dfPnH26UegfbGQQLrdK844DlHq5157/P6h57WyuS/Qsl+h/WSVGDF4MUi4rWSswW38oimDYfNNUBUOk=";
    EXPECT_EQ(AddressFromPublicKey(key), "15CRxFdyRpGZLW9w8HnHvVduizdL5jKNbs");
    EXPECT_TRUE(VerifyCompactSignature("Trust no one", key, signature));
    EXPECT_FALSE(VerifyCompactSignature("Trust nobody", key, signature));
}

TEST(CompactSignature, FormsOfTheSignature) {
    const TestKey key = KeyOfAda();
    const std::string text = "some text \xC3\xA9";
    const std::string good = SignText(key, text), zero(32, '\0');
    const sandbox::Bytes bytes = sandbox::FromBase64(good).value_or(sandbox::Bytes(64));
    const std::string rs(bytes.begin(), bytes.end()), r = rs.substr(0, 32), s = rs.substr(32);
    const struct {
        const char* name;
        std::string signature;
        bool accepted;
    } rows[] = {
        {"padded", good, true},
        {"unpadded", good.substr(0, 86), true},
        {"white space and padding anywhere", "\t " + good.substr(0, 5) + "=\r\n=" + good.substr(5) + "\v",
         true},
        {"header 255", Base64("\xFF" + rs), true},
        {"header 0", Base64(std::string(1, '\0') + rs), true},
        {"high s", Base64(r + Mirrored(s)), true},
        {"single hash", Base64(Compact(SignDigest(key, sandbox::Sha256(ViewOf(text))))), true},
        {"double hash", Base64(Compact(SignDigest(key, sandbox::DoubleSha256(ViewOf(text))))), true},
        {"other text", SignText(key, "other"), false},
        {"other key", SignText(sandbox::TestKeyOf("eve"), text), false},
        {"63 bytes", Base64(rs.substr(0, 63)), false},
        {"66 bytes", Base64("ab" + rs), false},
        {"foreign character", good + "-", false},
        {"foreign character far behind", good + std::string(100, 'A') + "*", false},
        {"NUL", good + std::string(1, '\0'), false},
        {"empty", "", false},
        {"r is 0", Base64(zero + s), false},
        {"s is 0", Base64(r + zero), false},
        {"s beyond the order", Base64(r + std::string(32, '\xFF')), false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(VerifyCompactSignature(text, kAda.public_hex, row.signature), row.accepted) << row.name;
    }
}

TEST(Keys, TheirFormsAndTheCanonicalOne) {
    const std::string signature = SignText(KeyOfAda(), "");
    const std::string key = kAda.public_hex;
    const std::string no_square = "02" + std::string(63, '0') + "5";  // 5^3 + 7 is none
    const struct {
        std::string text;
        std::optional<std::string> canonical;  // empty: no key; nothing: no hexadecimal text
        bool verifies;
    } rows[] = {
        {key, key, true},
        {" 0X" + Upper(key) + "\n", key, true},
        {"0x04" + kX + kY, key, true},
        {"03" + kX, "03" + kX, false},  // its twin
        {no_square, no_square, false},
        {"04" + kX + kX, "", false},
        {"06" + kX + kY, "", true},  // a point all the same
        {"04" + kX, "", false},
        {"02" + kX + kY, "", false},
        {key + "00", "", false},
        {std::string(66, '0'), "", false},
        {"00", "", false},  // the point at infinity
        {"0x", "", false},
        {key.substr(1), std::nullopt, false},
        {"g" + key.substr(1), std::nullopt, false},
        {"0x0x" + key, std::nullopt, false},
    };
    for (const auto& row : rows) {
        ByteBuffer bytes{7};
        EXPECT_EQ(DecodeKeyHex(row.text, bytes), row.canonical.has_value()) << row.text;
        EXPECT_EQ(CanonicalPublicKey(bytes), row.canonical.value_or("")) << row.text;
        EXPECT_EQ(VerifyCompactSignature("", row.text, signature), row.verifies) << row.text;
    }
}

// What bent and forged rows come to stands in the stories of the board.
class Verification : public testing::Test {
  protected:
    Verification() {
        ClearIdentityKeyCache();
        box_.Publish(IdentityOf(kAda));
    }
    ~Verification() override { ClearIdentityKeyCache(); }

    static json SoundRow() { return SignedScore(kAda, 4200, 1'790'000'000); }

    // The row with those changes, a null for a key that goes, and then signed.
    static bool VerifySigned(json row, const json& changes) {
        row.merge_patch(changes);
        SignRow(kAda, row);
        return VerifyMessage(row);
    }

    ManualClock clock_;
    SandboxFixture services_;
    sandbox::Sandbox& box_ = services_.box;
};

TEST_F(Verification, TheShapeOfARow) {
    for (const json& changes : json::parse(R"([
            {}, {"protocol": "OV-Art"}, {"type": "x"}, {"handle": "bob"},
            {"handle": " @ADA", "type": "message"}, {"location": null, "type": "whisper"}, {"location": null, "channel": "c"}, {"ts": 1e18},
            {"ts": "1"}, {"paymail": null}, {"paymail": "bob@elsewhere.test"}])")) {
        EXPECT_TRUE(VerifySigned(SoundRow(), changes)) << changes;
    }
    for (const json& changes : json::parse(R"([
            {"protocol": "cairn-wire"}, {"protocol": null}, {"type": ""}, {"handle": ""}, {"actor": null},
            {"handle": "bob", "type": "message"}, {"handle": "bob", "type": "thread_reply"},
            {"handle": "bob", "type": "whisper"}, {"location": ""}, {"ts": 0}, {"ts": -5}, {"ts": 1e300},
            {"paymail": "ada@elsewhere.test"}])")) {
        EXPECT_FALSE(VerifySigned(SoundRow(), changes)) << changes;
    }
    for (const json& other : json::parse(R"([null, [], "arcade_score", 7, {}])")) {
        EXPECT_FALSE(VerifyMessage(other)) << other;
    }
}

TEST_F(Verification, KeyAndSignatureHaveTwoNamesAndSeveralForms) {
    const json row = SoundRow();
    // A signature that is no text counts as absent.
    const std::pair<json, bool> rows[] = {
        {{{"publicKey", row["pubkey"]}, {"pubkey", nullptr}, {"signature", row["sig"]}, {"sig", 7}}, true},
        {{{"pubkey", "04" + kX + kY}}, true},
        {{{"pubkey", nullptr}}, false},
        {{{"sig", ""}}, false},
    };
    for (const auto& [changes, verifies] : rows) {
        json changed = row;
        changed.merge_patch(changes);
        EXPECT_EQ(VerifyMessage(changed), verifies) << changes;
    }
}

TEST_F(Verification, WebRows) {
    json row = {{"type", "web_gate"}, {"handle", "ada"}, {"origin", "o"}, {"path", "/"}, {"nonce", "n"}};
    EXPECT_TRUE(VerifySigned(row, json::object())) << "without protocol, actor and time";
    EXPECT_TRUE(VerifySigned(row, {{"paymail", "ada@elsewhere.test"}})) << "a web row's paymail says nothing";
    for (const char* const key : {"handle", "origin", "path", "nonce"}) {
        EXPECT_FALSE(VerifySigned(row, {{key, ""}})) << key;
    }
    row["type"] = "n_button";
    SignRow(MakePlayer("eve"), row);
    EXPECT_FALSE(VerifyMessage(row)) << "not the published key";
}

TEST_F(Verification, ABadSignatureNeverReachesTheNetwork) {
    json row = SoundRow();
    row["score"] = 4201;
    EXPECT_FALSE(VerifyMessage(row));
    EXPECT_FALSE(VerifySigned(SoundRow(), {{"paymail", " ada@elsewhere.test "}}));
    EXPECT_TRUE(box_.Requests(Service::kPaymail).empty());
}

TEST_F(Verification, WhatMayBeAskedForIsAskedForOnce) {
    const std::tuple<const char*, const char*, bool> rows[] = {
        {" @Ada", "", true},      {"", "", false},
        {"$ADA\t", "", true},     {"ada ", "", true},
        {"ada", "ada@", true},  // no paymail, so it says nothing
        {"ada", "@x", true},      {"ada", "ada", true},
        {"ada", "@ada@x", true},  // begins with "@": nothing in front of it
        {"ada", "$ADA@x", false}, {"ada", "ada@orvane.test@x", false},
        {"ada", "bob@x", true},   {"ada", " ADA@Orvane.Test\n", true},
        {"nobody", "", false},    {" @ ", "ada@orvane.test", false},
    };
    for (const auto& [handle, paymail, found] : rows) {
        EXPECT_EQ(LookupIdentityKey(handle, paymail), found ? kAda.public_hex : "") << handle << paymail;
    }
    EXPECT_EQ(box_.Requests(Service::kPaymail),
              (std::vector<std::string>{"GET /api/bsvalias/id/ada@orvane.test",
                                        "GET /api/bsvalias/id/nobody@orvane.test"}));
}

TEST_F(Verification, AnswersOfTheService) {
    const std::string key = kAda.public_hex;
    const auto expect_found = [&](const std::string& body, bool found, int status = 200) {
        ClearIdentityKeyCache();
        box_.AddFault(Service::kPaymail, ReplyTo("/api/bsvalias/id/ada@", body, status));
        EXPECT_EQ(LookupIdentityKey("ada", ""), found ? key : "") << status << " " << body;
        box_.ClearFaults();
        EXPECT_EQ(LookupIdentityKey("ada", ""), key) << "kept though it is none: " << body;
    };
    const json found[] = {
        {{"publicKey", "0x" + Upper(key)}},
        {{"pubkey", 7}, {"publicKey", "04" + kX + kY}},
        {{"pubkey", key}, {"handle", "Ada@Orvane.Test"}},
        {{"pubkey", key}, {"handle", "ada"}},
    };
    for (const json& body : found) expect_found(body.dump(), true);
    const json none[] = {
        {{"pubkey", key}, {"handle", "bob@orvane.test"}},
        {{"pubkey", key}, {"handle", "ada@elsewhere.test"}},
        {{"pubkey", key}, {"handle", 7}},
        {{"pubkey", ""}, {"publicKey", key}},
        {{"pubkey", key.substr(2)}},
        {{"pubkey", "zz"}},
        json::array({key}),
    };
    for (const json& body : none) expect_found(body.dump(), false);
    expect_found("<html>", false);
    expect_found(found[0].dump(), false, 201);
    expect_found("", false, 429);
}

}  // namespace
}  // namespace brickfall
