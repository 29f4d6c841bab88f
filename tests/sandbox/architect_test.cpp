// The recipient of reports: reads what the cabinet has sealed and paid for, refuses what somebody has
// touched.
#include "sandbox/server/architect.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "deployment/deployment.h"
#include "messages/direct_message.h"
#include "messages/row.h"
#include "messages/signing.h"
#include "messages/verification.h"
#include "net/http_client.h"
#include "tests/support/sealed_message.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/payment/pay_drivers.h"

namespace brickfall {
namespace {

using nlohmann::json;

// The id of the transaction that carries the row.
std::string Send(const json& row) {
    const std::string result = PayReport(DumpRow(row));
    EXPECT_EQ(result.substr(0, 9), "success: ");
    return result.substr(std::min<std::size_t>(result.size(), 9));
}

json SignedReport(const std::string& text) {
    json row = {{"protocol", "Cairn-Wire"}, {"type", "report"},         {"app", "Brickfall"},
                {"handle", "ada"},          {"to_handle", "architect"}, {"location", "arcade"},
                {"game", "brickfall"},      {"ts", 1'790'000'000}};
    std::string error;
    EXPECT_TRUE(EncryptDirectMessage({text}, "ada", kArchitectHandle, row, error)) << error;
    EXPECT_TRUE(SignMessage(row, error)) << error;
    return row;
}

TEST(Architect, ReadsWhatIsSealedToItAndNothingThatWasTouched) {
    const WorkingFolder working;
    const SandboxFixture services;
    sandbox::Sandbox& box = services.box;
    const WalletFixture wallet;
    ClearIdentityKeyCache();
    ClearEncryptionKeys();
    {
        const WalletLock lock(wallet_mutex);
        box.Publish({"ada", wallet_keys.identity_pub, "", "", "", false, "", ""});
    }
    ASSERT_TRUE(box.AppointArchitect("userinfo"));
    ASSERT_FALSE(box.Fund(wallet.ReceiveAddress(0), 100'000).empty());

    const std::string text = "the ball went \"through\" the wall\nat 3 o'clock \xF0\x9F\xA7\xB1";
    const json row = SignedReport(text);
    const std::string sent = Send(row);
    Send(SignedReport(std::string(2'000, 'x')));

    json changes = {{"ts", 1'790'000'001}, {"location", "lobby"}, {"handle", "eve"},  {"actor", "eve"},
                    {"protocol", "other"}, {"sig", "AAAA"},       {"pmessage1", "00"}};
    for (const char* const key : {"enc_pub", "wrap_to", "pubkey"}) {
        std::string value = row[key].get<std::string>();
        value.back() = value.back() == '0' ? '1' : '0';
        changes[key] = value;
    }
    for (const auto& [key, value] : changes.items()) {
        SCOPED_TRACE(key);
        json bent = row;
        bent[key] = value;
        const std::string txid = Send(bent);
        const sandbox::Report report = box.Reports().back();
        EXPECT_EQ(report.txid, txid);
        EXPECT_TRUE(report.refusal != "" && report.text.empty());
    }
    json elsewhere = row;
    elsewhere["to_handle"] = "bob";
    Send(elsewhere);
    EXPECT_EQ(box.Reports().size(), 2 + changes.size()) << "another's letter is no business of its";

    std::string body, error;
    ASSERT_TRUE(HttpGetOnce("https://control.sandbox.test/reports", body, error)) << error;
    const json answer = json::parse(body, nullptr, false);
    ASSERT_EQ(answer["reports"].size(), 2u);
    EXPECT_EQ(answer["reports"][0],
              (json{{"handle", "ada"}, {"text", text}, {"ts", 1'790'000'000}, {"txid", sent}}));
    EXPECT_EQ(answer["reports"][1]["text"], std::string(2'000, 'x'));
    EXPECT_EQ(answer["refused"].size(), changes.size());
}

}  // namespace
}  // namespace brickfall
