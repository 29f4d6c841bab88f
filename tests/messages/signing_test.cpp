#include "messages/signing.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "messages/row.h"
#include "messages/verification.h"
#include "tests/support/manual_clock.h"
#include "tests/support/signed_rows.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/store/wallet_paths.h"

namespace brickfall {
namespace {

using nlohmann::json;
using sandbox::Service;

constexpr char kNotPublished[] = "identity signature did not verify against orvane.test PKI";

class Signing : public testing::Test {
  protected:
    Signing() {
        ClearIdentityKeyCache();
        player_.public_hex = wallet_.IdentityKey();
        services_.box.Publish(IdentityOf(player_));
    }
    ~Signing() override { ClearIdentityKeyCache(); }

    // As another player has signed it.
    static json ScoreRow() { return SignedScore(MakePlayer("bob"), 4200, 5); }

    bool Sign(json& row) { return SignMessage(row, error_); }

    WalletFixture wallet_{"ada"};
    SandboxFixture services_;
    TestPlayer player_ = MakePlayer("ada");
    std::string error_ = "former";
};

TEST_F(Signing, AGeneralRowIsStampedAndSigned) {
    json row = ScoreRow();
    row.erase("ts");
    json expected = row;
    ASSERT_TRUE(Sign(row)) << error_;
    EXPECT_EQ(error_, "");
    const std::string signature = JsonString(row, "sig");
    const std::string text = "OV1|arcade_score|arcade|bob|ada|1790000000|brickfall|4200|1789948800|" +
                             std::string(64, 'e') + "|" + JsonString(row, "pay_addr") + "|" +
                             std::string(64, '7');
    EXPECT_TRUE(VerifyCompactSignature(text, wallet_.IdentityKey(), signature));
    EXPECT_EQ(signature.size(), 88u);
    expected.update({{"actor", "ada"},
                     {"paymail", "ada@orvane.test"},
                     {"ts", kClockStart},
                     {"pubkey", wallet_.IdentityKey()},
                     {"sig", signature}});
    EXPECT_EQ(row, expected) << "and nothing else is touched";

    // A number is a time of the caller's. The key is known now: nobody is asked.
    services_.box.ClearRequests();
    for (const json& ts : {json(5), json(5.5), json(1u), json("5"), json(nullptr), json(true)}) {
        row["ts"] = ts;
        EXPECT_TRUE(Sign(row)) << ts;
        EXPECT_EQ(row["ts"], ts.is_number() ? ts : json(kClockStart));
    }
    EXPECT_TRUE(services_.box.Requests(Service::kPaymail).empty());
}

TEST_F(Signing, ANameThatOnlyTheRegistryKnowsSignsAndIsNotAnnounced) {
    json row = ScoreRow();
    ASSERT_TRUE(Sign(row)) << error_;  // notes the name in the registry
    ASSERT_TRUE(WriteFile(WalletFilePath(), json{{"version", 2}, {"mnemonic", kTestPhrase}}.dump()));
    wallet_.Restart();
    EventLines events;
    EXPECT_TRUE(Sign(row)) << error_;
    EXPECT_EQ(row["actor"], "ada");
    EXPECT_EQ(events.Take(), std::vector<std::string>{});
}

TEST_F(Signing, AWebRowLosesWhatDoesNotBelongInIt) {
    json expected = {{"type", "web_gate"}, {"origin", "o"}, {"path", "/p"}, {"nonce", "n"}, {"extra", 1}};
    json row = expected;
    for (const char* const key : {"handle", "actor", "paymail", "ts", "protocol", "location", "channel",
                                  "site_addr", "site_sats", "fee_addr", "fee_sats", "pubkey", "sig"}) {
        row[key] = "former";
    }
    ASSERT_TRUE(Sign(row)) << error_;
    EXPECT_TRUE(
        VerifyCompactSignature("OV1|web_gate|ada|o|/p||n", wallet_.IdentityKey(), JsonString(row, "sig")));
    expected.update({{"handle", "ada"}, {"pubkey", wallet_.IdentityKey()}, {"sig", row["sig"]}});
    EXPECT_EQ(row, expected);
}

TEST_F(Signing, ARowThatNobodyWouldVouchForIsRefused) {
    json row = ScoreRow();
    const auto expect_refused = [&](const char* why) {
        EXPECT_FALSE(Sign(row)) << why;
        EXPECT_EQ(error_, kNotPublished) << why;
    };
    row = nullptr;
    expect_refused("a row without a field as yet");
    EXPECT_EQ(row["actor"], "ada");
    services_.box.Publish(IdentityOf(MakePlayer("ada")));
    row = ScoreRow();
    expect_refused("somebody else's key is published");
    row = json::array();
    EXPECT_FALSE(Sign(row));
    EXPECT_EQ(row, json::array()) << "no row at all";
}

TEST_F(Signing, TheWalletMustHaveANameAndWords) {
    const std::pair<json, const char*> rows[] = {
        {nullptr, "Connect Pouch"},
        {{{"version", 2}, {"mnemonic", kTestPhrase}}, "Connect Pouch"},
        {{{"priv", std::string(63, '0') + "1"}, {"paymail", "ada"}}, "Pouch HD wallet not connected"},
    };
    for (const auto& [wallet, refusal] : rows) {
        ASSERT_TRUE(WriteFile(WalletFilePath(), wallet.dump()));
        ASSERT_TRUE(WriteFile(wallet_.StorePath("/orvane_paymail.json"), ""));
        wallet_.Restart();
        json row = ScoreRow();
        row.erase("sig");
        EXPECT_FALSE(Sign(row)) << wallet;
        EXPECT_EQ(error_, refusal) << wallet;
        EXPECT_FALSE(row.contains("sig")) << wallet;
    }
}

}  // namespace
}  // namespace brickfall
