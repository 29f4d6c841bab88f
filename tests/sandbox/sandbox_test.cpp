// The sandbox's services as a client meets them, in what no client's own tests would miss.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "base/files.h"
#include "deployment/deployment.h"
#include "deployment/sandbox_route.h"
#include "net/http_client.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/link/paymail_host.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/hashes.h"
#include "wallet/protocol/script.h"
#include "wallet/protocol/transaction.h"
#include "wallet/session/identity_signature.h"

namespace brickfall {
namespace {

using nlohmann::json;

const std::string kChain = kChainApiBaseUrl;
const std::string kOrdinals = kOrdinalsApiBaseUrl;
const std::string kFamily = kApiBaseUrl;
const std::string kControl = "https://control.sandbox.test";

struct Answer {
    bool good = false;
    std::string body, error;
    json document;  // of the body, discarded when it does not parse
};

Answer Ask(const std::string& url, const json& posted) {
    Answer answer;
    answer.good = posted.is_null() ? HttpGetOnce(url, answer.body, answer.error)
                                   : HttpPostJson(url, posted.dump(), answer.body, answer.error, 20, 1);
    answer.document = json::parse(answer.body, nullptr, false);
    return answer;
}
Answer Get(const std::string& url) { return Ask(url, nullptr); }
Answer Post(const std::string& url, const json& body) { return Ask(url, body); }

// A wallet with one mined coin of 100,000 satoshis, and a payment of 549 to the watch address from it.
struct ServiceTest : testing::Test {
    ServiceTest() {
        receive = wallet.ReceiveAddress(0);
        {
            const WalletLock lock(wallet_mutex);
            own_key = wallet_keys.identity_pub;
        }
        funding = box.Fund(receive, 100'000);
        payment_hex = PaymentFrom(funding);
        payment = TxidOf(HexDecode(payment_hex));
    }

    std::string PaymentFrom(const std::string& coin_id) const {
        const Hash160 owner = AddressHash(receive);
        SpendInput coin;
        coin.txid = coin_id;
        coin.value = 100'000;
        const PayOutput outputs[] = {{549, P2pkhScript(AddressHash(kArcadeWatchAddress))},
                                     {0, DataCarrierScript("{\"a\":1}")},
                                     {99'000, P2pkhScript(owner)}};
        const WalletLock lock(wallet_mutex);
        EXPECT_TRUE(SignInput(coin, {&coin, 1}, outputs, owner, wallet_keys.priv, wallet_keys.pub));
        return HexEncode(SerializeTx({&coin, 1}, outputs, /*skeleton=*/false));
    }

    std::string AddressUrl(const std::string& tail) const { return kChain + "/address/" + receive + tail; }
    json Listed(const std::string& tail) {
        const Answer answer = Get(AddressUrl(tail));
        EXPECT_TRUE(answer.good) << tail << " " << answer.error;
        EXPECT_EQ(answer.document.value("error", std::string("none")), "");
        EXPECT_EQ(answer.document.value("address", std::string()), receive);
        return answer.document.value("result", json());
    }

    SandboxFixture services;
    sandbox::Sandbox& box = services.box;
    WalletFixture wallet;
    std::string receive, funding, payment, payment_hex, own_key;
};

TEST_F(ServiceTest, TheListingsFollowACoinFromTheMempoolIntoABlock) {
    json mined_row = {{"height", 800'001},     {"isSpentInMempoolTx", false},
                      {"status", "confirmed"}, {"tx_hash", funding},
                      {"tx_pos", 0},           {"value", 100'000}};
    EXPECT_EQ(Listed("/unspent/all"), json::array({mined_row}));
    const Answer taken = Post(kChain + "/tx/raw", {{"txhex", payment_hex}});
    EXPECT_EQ(taken.body, "\"" + payment + "\"\n") << taken.error;

    // In the mempool: the spent coin is flagged where there are flags, the change has its script, no height.
    mined_row["isSpentInMempoolTx"] = true;
    const json change_row = {{"hex", HexEncode(P2pkhScript(AddressHash(receive)))},
                             {"isSpentInMempoolTx", false},
                             {"status", "unconfirmed"},
                             {"tx_hash", payment},
                             {"tx_pos", 2},
                             {"value", 99'000}};
    EXPECT_EQ(Listed("/unspent/all"), json::array({mined_row, change_row}));
    EXPECT_EQ(Listed("/unconfirmed/unspent"), json::array({change_row}));
    EXPECT_EQ(Listed("/unconfirmed/history"), json::array({json{{"tx_hash", payment}}}));

    box.Mine();
    const json mined_change = Listed("/unspent/all");
    ASSERT_EQ(mined_change.size(), 1u) << "what a mined transaction has spent is gone";
    EXPECT_EQ(mined_change[0]["height"], 800'002);
    const json last = Get(AddressUrl("/confirmed/history?limit=1")).document;
    EXPECT_EQ(last["result"], json::array({json{{"height", 800'002}, {"tx_hash", payment}}}));
}

TEST_F(ServiceTest, EachBroadcastServiceRefusesInItsOwnWords) {
    std::string txid, reason;
    ASSERT_TRUE(box.Submit(payment_hex, txid, reason)) << reason;
    // The same coin again, and a transaction whose input nobody knows.
    std::string rival = payment_hex;
    rival.replace(rival.size() - 8, 8, "01000000");
    std::string orphan = payment_hex;
    orphan.replace(10, 2, orphan.substr(10, 2) == "00" ? "01" : "00");

    const struct {
        std::string hex;
        std::string node;
        int arc_status;
    } rows[] = {
        {"00", "TX decode failed", 463},
        {payment_hex, "257: txn-already-known", 200},
        {rival, "258: txn-mempool-conflict", 200},
        {orphan, "Missing inputs", 462},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.node);
        const Answer chain = Post(kChain + "/tx/raw", {{"txhex", row.hex}});
        EXPECT_FALSE(chain.good);
        EXPECT_EQ(chain.body, "unexpected response code 500: " + row.node);

        const json relay = Post(kFamily + "/oi/submit", {{"txhex", row.hex}}).document;
        const bool known = row.hex == payment_hex;
        EXPECT_EQ(relay["ok"], known);
        EXPECT_EQ(relay.value("error", std::string()), known ? "" : row.node);

        const Answer arc = Post(kArcBroadcastUrl, {{"rawTx", row.hex}});
        EXPECT_EQ(arc.good, row.arc_status == 200);
        EXPECT_EQ(arc.document["status"], row.arc_status);
        if (row.hex == rival) {
            EXPECT_EQ(arc.document["txStatus"], "DOUBLE_SPEND_ATTEMPTED");
            EXPECT_EQ(arc.document["competingTxs"], json::array({payment}));
        }
    }
    EXPECT_EQ(Post(kArcBroadcastUrl, {{"rawTx", payment_hex}}).document["txStatus"], "SEEN_ON_NETWORK");
    std::vector<std::string> handed_in = {payment_hex};
    for (const std::string& hex : {payment_hex, rival, orphan}) handed_in.insert(handed_in.end(), 3, hex);
    handed_in.push_back(payment_hex);
    EXPECT_EQ(box.Submissions(), handed_in) << "also what is refused";
}

TEST_F(ServiceTest, NamesAreGivenToWhoSignsForThem) {
    const std::string url = kFamily + "/api/paymail/claim";
    const auto sign = [](json claim) {
        std::string text = "OV-PAYMAIL-CLAIM|", key, signature, error;
        for (const char* name : {"alias", "pubkey", "address", "avatar", "ordAddress"}) {
            if (claim.contains(name)) text += claim[name].get<std::string>() + "|";
        }
        text += claim["ts"].dump();
        EXPECT_TRUE(SignIdentityMessage(text, key, signature, error)) << error;
        claim["sig"] = signature;
        return claim;
    };
    const json plain = {
        {"alias", "ada"}, {"pubkey", own_key}, {"address", receive}, {"avatar", ""}, {"ts", 1}};
    const json good = sign(plain);

    // Each change after signing must be noticed, and each field must be there.
    json changes = {{"alias", "eve"}, {"address", kReportFeeAddress}, {"avatar", "x"}, {"ts", 2}};
    changes["sig"] = std::string(86, 'A') + "==";
    changes["ordAddress"] = receive;
    changes["pubkey"] = "02" + own_key.substr(2, 63) + "0";
    for (const auto& [key, value] : changes.items()) {
        json forged = good;
        forged[key] = value;
        EXPECT_FALSE(Post(url, forged).good) << key;
        if (key == "ordAddress") continue;  // may be absent
        forged.erase(key);
        EXPECT_FALSE(Post(url, forged).good) << key;
    }
    EXPECT_FALSE(box.Identity("ada").has_value());

    ASSERT_TRUE(Post(url, good).good);

    // A name of somebody else's stays theirs. What the host says of a key is not the key's to change.
    box.Publish({"bob", "02" + std::string(64, '1'), kReportFeeAddress, "", "", false, "", ""});
    json taken = plain;
    taken["alias"] = "bob";
    const Answer refused = Post(url, sign(taken));
    EXPECT_EQ(refused.error.substr(0, 8), "HTTP 409");
    EXPECT_EQ(refused.document["error"], "that name is taken");
    box.Publish({"ada", own_key, receive, "", "", true, "asked to stop", "maker"});
    ASSERT_TRUE(Post(url, good).good);
    EXPECT_EQ(Get(kFamily + "/api/paymail/identity/" + own_key).document["frozen"], true);
    EXPECT_EQ(Get(kFamily + "/api/paymail/quota/" + own_key).document["role"], "maker");
}

TEST_F(ServiceTest, TheControlEndpointDoesWhatTheInterfaceDoes) {
    const json fund = {{"address", kReportFeeAddress}, {"satoshis", 700}};
    EXPECT_EQ(Post(kControl + "/fund", fund).document["txid"].get<std::string>().size(), 64u);
    EXPECT_EQ(Get(kControl + "/balance/" + kReportFeeAddress).document["satoshis"], 700);
    EXPECT_EQ(Get(kControl + "/transactions").document["transactions"], box.RawTransactions());
    EXPECT_EQ(Get(kControl + "/state").document,
              (json{{"fees", 0}, {"funded", 100'700}, {"transactions", 2}, {"unspent", 100'700}}));
    const json fault = json::parse(R"({"service":"download","kind":"reply","status":503,"times":1})");
    EXPECT_TRUE(Post(kControl + "/fault", fault).good);
    EXPECT_TRUE(Post(kControl + "/build", {{"build", "0.002"}}).good);
    EXPECT_FALSE(Get(kDownloadPageUrl).good);
    const std::pair met(sandbox::Service::kDownload, sandbox::FaultKind::kReply);
    EXPECT_EQ(box.FaultsMet(), (sandbox::FaultCounts{{met, 1}}));
    EXPECT_NE(Get(kDownloadPageUrl).body.find("Current build: Version 0.002<"), std::string::npos);
    EXPECT_EQ(Get(kControl + "/requests/download").document["requests"].size(), 2u);
    for (const json& bad : {json(1.5), json(-5), json(21'000'000LL * 100'000'000)}) {
        EXPECT_FALSE(Post(kControl + "/fund", {{"address", kReportFeeAddress}, {"satoshis", bad}}).good);
    }
    EXPECT_FALSE(Post(kControl + "/fault", {{"service", "moon"}, {"kind", "reply"}}).good);
}

TEST_F(ServiceTest, TheJournalBringsTheChainBack) {
    const TempFolder folder;
    sandbox::Options options;
    options.folder = folder.Path() + "/authority";
    options.journal_file = folder.Path() + "/journal.jsonl";
    std::string error, txid, reason;
    std::vector<std::string> transactions;
    {
        sandbox::Sandbox first(options);
        ASSERT_TRUE(first.Start(error)) << error;
        for (const bool lost : {true, false}) {
            const std::string coin = first.Fund(receive, 100'000);
            ASSERT_TRUE(first.Submit(PaymentFrom(coin), txid, reason)) << reason;
            if (lost) first.Forget(txid);
        }
        first.Mine();
        first.Publish({"bob", "02" + std::string(64, '1'), receive, "face", "", true, "why", "maker"});
        SetConnectRoute({first.ConnectTo(), first.CaFile(), 1});
        ASSERT_EQ(ClaimPaymail("ada", own_key, receive, "", ""), "");
        transactions = first.RawTransactions();
    }
    // Killed in the middle of a line.
    const std::string whole = *ReadFile(options.journal_file);
    ASSERT_TRUE(WriteFile(options.journal_file, whole + "{\"kind\":\"blo"));
    {
        sandbox::Sandbox second(options);
        ASSERT_TRUE(second.Start(error)) << error;
        EXPECT_EQ(second.RawTransactions(), transactions);
        EXPECT_EQ(second.BalanceOf(receive), 100'000 + 99'000);
        EXPECT_EQ(second.TotalFees(), 451);
        for (const sandbox::ChainOutput& output : second.Unspent(receive)) EXPECT_FALSE(output.in_mempool);
        EXPECT_EQ(second.Identity("bob")->frozen_note, "why");
        EXPECT_EQ(second.Identity("ada")->address, receive);
        EXPECT_EQ(*ReadFile(options.journal_file), whole);
    }
    ASSERT_TRUE(WriteFile(options.journal_file, "{\"kind\":\"moon\"}\n"));
    EXPECT_FALSE(sandbox::Sandbox(options).Start(error));
    EXPECT_NE(error.find("line 1"), std::string::npos) << error;
}

}  // namespace
}  // namespace brickfall
