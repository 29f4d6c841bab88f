// A report from the text in the window to the operator who reads it off the chain, and every way in which it
// can end before. The operator is played by an opener of its own.
#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "base/files.h"
#include "base/workers.h"
#include "deployment/deployment.h"
#include "game/flows.h"
#include "messages/direct_message.h"
#include "messages/verification.h"
#include "tests/support/manual_clock.h"
#include "tests/support/sealed_message.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/link/connect_handshake.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/encodings.h"

namespace brickfall {
namespace {

using nlohmann::json;
using sandbox::FaultKind;
using sandbox::Service;

constexpr char kNoName[] = "Connect Pouch and publish a @orvane.test name first.";
constexpr char kBadText[] = "Write a report (max 2000 characters).";
constexpr char kNoKey[] =
    "no encryption key on file for @architect. They need to join a channel once with this version so their "
    "key is "
    "published.";

// The operator's former and present private key.
const std::string kFormerKey(64, '1');
const std::string kPresentKey(64, '2');

std::string PublicOf(const std::string& private_hex) {
    std::string public_hex;
    EXPECT_TRUE(PublicKeyFromPrivate(private_hex, public_hex));
    return public_hex;
}

std::string Repeat(int times, std::string_view piece) {
    std::string text;
    for (int i = 0; i < times; ++i) text += piece;
    return text;
}

// A named and funded wallet, the services, the operator's key file, and a cabinet whose worker runs inside
// the click; what it posts waits for Deliver.
struct ReportStory : testing::Test {
    ReportStory() {
        ClearIdentityKeyCache();
        ClearEncryptionKeys();
        SetInlineWorkers(true);
        driver.run.set_status = [this](std::string_view text) { statuses.emplace_back(text); };
        driver.run.enable_control = [this](int id, bool on) { enabled[id] = on; };
        driver.run.invalidate_well = [] {};
        driver.begin_check = [this](int control, std::string_view) { checks.push_back(control); };
        driver.end_check = [this] { checks.push_back(0); };
        driver.refresh_wallet_labels = [] {};
        driver.start_pot_refresh = [] {};
        driver.post_pay_done = [this](PayKind kind, ResultText text) {
            posted.emplace_back(kind, std::move(text));
        };
        Publish();
        box.Fund(wallet.ReceiveAddress(0), 100'000);
        PutKeyFile(PublicOf(kPresentKey) + "\n1780000000\n");
    }
    ~ReportStory() override {
        SetInlineWorkers(false);
        ClearEncryptionKeys();
        ClearIdentityKeyCache();
    }

    void Publish() {
        sandbox::PublishedIdentity identity;
        identity.alias = "ada";
        const WalletLock lock(wallet_mutex);
        identity.pubkey = wallet_keys.identity_pub;
        box.Publish(identity);
    }

    static void PutKeyFile(const std::string& content) {
        MakeFolders("userinfo");
        ASSERT_TRUE(WriteFile("userinfo/encpub-architect.txt", content));
    }

    ReportOutcome Send(std::string_view text) { return OnSendReport(run, driver, text); }

    void Deliver() {
        for (; !posted.empty(); posted.pop_front()) {
            OnPayResult(run, driver, posted.front().first, std::move(posted.front().second));
        }
    }

    // The row in the last transaction, cut out of its bytes as a stranger would.
    json RowOnChain() const {
        const std::string raw = box.RawTransactions().back();
        const std::size_t at = raw.find("006a4d");  // false, return, push of a length in two bytes
        if (at == std::string::npos) return {};
        const ByteBuffer size = HexDecode(raw.substr(at + 6, 4));
        const ByteBuffer data = HexDecode(raw.substr(at + 10, 2 * (size[0] + 256u * size[1])));
        return json::parse(data.begin(), data.end(), nullptr, /*allow_exceptions=*/false);
    }

    // What the operator reads with a key; an empty text when nothing.
    std::string Read(const std::string& private_hex) const {
        return OpenMessage(RowOnChain(), "wrap_to", private_hex).value_or("");
    }

    // The report has ended before any money moved: it can be sent again.
    void ExpectRefused(const ReportOutcome& outcome, const std::string& words, bool is_warning) {
        EXPECT_FALSE(outcome.sent);
        EXPECT_EQ(outcome.refusal, words);
        EXPECT_EQ(outcome.is_warning, is_warning);
        EXPECT_FALSE(run.busy);
        EXPECT_TRUE(statuses.empty() && enabled.empty() && posted.empty());
        EXPECT_EQ(box.TotalFees(), 0);
    }

    void ExpectRead(const std::string& text, const std::string& private_hex) {
        const ReportOutcome outcome = Send(text);
        EXPECT_TRUE(outcome.sent) << outcome.refusal;
        Deliver();
        EXPECT_TRUE(statuses.back().starts_with("Report sent. ")) << statuses.back();
        EXPECT_EQ(Read(private_hex), text);
    }

    const WorkingFolder folder;
    SandboxFixture services;
    sandbox::Sandbox& box = services.box;
    WalletFixture wallet{"ada"};
    RunControl run;
    FlowDriver driver;
    std::vector<std::string> statuses;
    std::map<int, bool> enabled;
    std::vector<int> checks;  // begun, by control, and ended
    std::deque<std::pair<PayKind, ResultText>> posted;
};

TEST_F(ReportStory, AReportIsReadWordForWord) {
    const std::string text =
        "The wall has a hole.\r\n\"Ada\" \xF0\x9F\x98\x80 \xD7\xA9\xD7\x9C\xD7\x95\xD7\x9D";
    const ReportOutcome outcome = Send("\n\t " + text + " \r\n");
    EXPECT_TRUE(outcome.sent) << outcome.refusal;
    EXPECT_EQ(outcome.refusal, "");
    EXPECT_EQ(statuses, std::vector<std::string>{"Sending report in Pouch..."});
    EXPECT_EQ(checks, (std::vector<int>{kControlReport, 0}));
    EXPECT_TRUE(run.busy);
    const auto expect_enabled = [&](bool on) {
        for (const int id :
             {kControlConnect, kControlUnbind, kControlPlay, kControlRecord, kControlBoard, kControlReport}) {
            EXPECT_EQ(enabled.at(id), on) << id;
        }
    };
    expect_enabled(false);

    // A second one, and a run, wait for the first.
    const ReportOutcome second = Send("again");
    EXPECT_FALSE(second.sent);
    EXPECT_EQ(second.refusal, "") << "the status line says it";
    EXPECT_EQ(statuses.back(), "Already working...");
    OnPlayClicked(run, driver);
    EXPECT_EQ(statuses.back(), "Already working...");
    ASSERT_EQ(posted.size(), 1u);
    Deliver();
    EXPECT_FALSE(run.busy);
    expect_enabled(true);
    ASSERT_TRUE(statuses.back().starts_with("Report sent. ")) << statuses.back();
    const std::string txid = statuses.back().substr(13);
    EXPECT_EQ(box.RawTransaction(txid), box.RawTransactions().back());
    EXPECT_EQ(box.BalanceOf(kReportFeeAddress), 1'000);
    EXPECT_EQ(box.BalanceOf(kReportOracleAddress), 1);
    EXPECT_EQ(box.BalanceOf(wallet.ReceiveAddress(0)), 100'000 - 1'001 - box.TotalFees());

    json row = RowOnChain();
    EXPECT_EQ(OpenMessage(row, "wrap_to", kPresentKey), text);
    EXPECT_EQ(OpenMessage(row, "wrap_to", kFormerKey), std::nullopt);
    std::string own_public, error;
    SecretString own_private;
    ASSERT_TRUE(LoadEncryptionKeys(own_public, own_private, error)) << error;
    EXPECT_EQ(OpenMessage(row, "wrap_me", own_private), text) << "by the sender";
    ClearIdentityKeyCache();
    EXPECT_TRUE(VerifyMessage(row));
    EXPECT_TRUE(VerifyCompactSignature("OV1|report|arcade|ada|ada|1790000000|" + own_public,
                                       row.value("pubkey", ""), row.value("sig", "")));
    for (const char* const key : {"pmessage1", "wrap_to", "wrap_me", "pubkey", "sig"}) {
        EXPECT_EQ(row.erase(key), 1u) << key;
    }
    const json expected = {
        {"protocol", "Cairn-Wire"}, {"type", "report"},         {"app", "Brickfall"},
        {"handle", "ada"},          {"to_handle", "architect"}, {"location", "arcade"},
        {"game", "brickfall"},      {"ts", kClockStart},        {"enc_v", 2},
        {"enc_pub", own_public},    {"actor", "ada"},           {"paymail", "ada@orvane.test"}};
    EXPECT_EQ(row, expected);
}

TEST_F(ReportStory, TheLimitIsTwoThousandBytes) {
    const std::string two_bytes = "\xC3\xA9";
    for (const std::string& text :
         {std::string(2'001, 'x'), Repeat(1'001, two_bytes), Repeat(501, "\xF0\x9F\x98\x80"), std::string(),
          std::string(" \t\r\n\v\f"), std::string(3'000'000, 'x')}) {
        ExpectRefused(Send(text), kBadText, /*is_warning=*/false);
    }
    EXPECT_TRUE(box.Requests(Service::kPaymail).empty());
    for (const std::string& text : {std::string(2'000, 'x'), Repeat(1'000, two_bytes), std::string("x")}) {
        ExpectRead(text, kPresentKey);
    }
    EXPECT_TRUE(Send(std::string(500, ' ') + std::string(2'000, 'y') + "\n").sent)
        << "blanks around count nothing";
    Deliver();
    EXPECT_EQ(Read(kPresentKey), std::string(2'000, 'y'));
}

TEST_F(ReportStory, WithoutAWallet) {
    UnbindWallet();
    ExpectRefused(Send("text"), kNoName, /*is_warning=*/false);
    ExpectRefused(Send(" "), kNoName, /*is_warning=*/false);  // whatever the text
}

TEST(ReportStoryOfANamelessWallet, ItsRefusal) {
    const WalletFixture wallet("");
    RunControl run;
    const ReportOutcome outcome = OnSendReport(run, FlowDriver{}, "text");
    EXPECT_FALSE(outcome.sent);
    EXPECT_EQ(outcome.refusal, kNoName);
    EXPECT_FALSE(run.busy);
}

TEST_F(ReportStory, TheOperatorsKeyFile) {
    const std::string present = PublicOf(kPresentKey);
    RemoveFile("userinfo/encpub-architect.txt");
    ExpectRefused(Send("text"), kNoKey, /*is_warning=*/true);
    for (const std::string& damaged : {std::string(), "\n" + present, present.substr(0, 40),
                                       "zz" + present.substr(2), "04" + Repeat(128, "1") + "\n9\n"}) {
        PutKeyFile(damaged);
        ExpectRefused(Send("text"), kNoKey, /*is_warning=*/true);
    }
    PutKeyFile("02" + std::string(64, 'f') + "\n1\n");
    ExpectRefused(Send("text"), "failed to wrap direct-message key", /*is_warning=*/true);

    // A newer file replaces what memory holds; an older, a damaged or a missing one does not.
    PutKeyFile(PublicOf(kFormerKey) + "\n5\n");
    ExpectRead("to the former key", kFormerKey);
    PutKeyFile(present + "\n6\n");
    ExpectRead("to the present key", kPresentKey);
    PutKeyFile(PublicOf(kFormerKey) + "\n5\n");
    ExpectRead("the file is older", kPresentKey);
    PutKeyFile("damaged");
    ExpectRead("the file is damaged", kPresentKey);
    RemoveFile("userinfo/encpub-architect.txt");
    ExpectRead("the file is gone", kPresentKey);
}

TEST_F(ReportStory, TheHostIsDownAtTheSelfCheck) {
    services.Disturb(Service::kPaymail, FaultKind::kDrop);
    ExpectRefused(Send("text"), "identity signature did not verify against orvane.test PKI",
                  /*is_warning=*/true);
    box.ClearFaults();
    ExpectRead("text", kPresentKey);
}

TEST_F(ReportStory, ThePaymentFailsOnceTheWindowIsClosed) {
    services.Disturb(Service::kChain, FaultKind::kReply, "/tx/raw");
    services.Disturb(Service::kRelay, FaultKind::kDrop);
    EXPECT_TRUE(Send("text").sent);
    Deliver();
    EXPECT_EQ(statuses.back(), "error: broadcast failed: HTTP 500 \xE2\x80\x93 try later");
    EXPECT_FALSE(run.busy);
    EXPECT_TRUE(enabled.at(kControlReport));
    EXPECT_EQ(box.BalanceOf(kReportFeeAddress), 0);
    EXPECT_EQ(box.TotalFees(), 0);
    box.ClearFaults();
    ExpectRead("written again", kPresentKey);
    EXPECT_EQ(box.BalanceOf(kReportFeeAddress), 1'000);
    EXPECT_EQ(box.TotalFunded(), box.TotalUnspent() + box.TotalFees());
}

}  // namespace
}  // namespace brickfall
