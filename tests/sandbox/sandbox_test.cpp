// The sandbox's services as a client meets them: the shapes of their answers, names, faults, and an end that
// waits for nobody.
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <thread>

#include "base/files.h"
#include "deployment/deployment.h"
#include "deployment/sandbox_route.h"
#include "net/http_client.h"
#include "tests/support/child_process.h"
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
using sandbox::Fault;
using sandbox::FaultKind;
using sandbox::Service;

const std::string kChain = kChainApiBaseUrl;
const std::string kOrdinals = kOrdinalsApiBaseUrl;
const std::string kFamily = kApiBaseUrl;
const std::string kProgram = BRICKFALL_BINARY_DIR "/sandbox/brickfall-sandbox";
const std::string kControl = "https://control.sandbox.test";

struct Answer {
    bool good = false;
    std::string body;
    std::string error;
    json document;  // of the body, discarded when it does not parse
};

Answer Get(const std::string& url) {
    Answer answer;
    answer.good = HttpGetOnce(url, answer.body, answer.error);
    answer.document = json::parse(answer.body, nullptr, false);
    return answer;
}

Answer Post(const std::string& url, const json& body) {
    Answer answer;
    answer.good = HttpPostJson(url, body.dump(), answer.body, answer.error, 20, 1);
    answer.document = json::parse(answer.body, nullptr, false);
    return answer;
}

Fault Of(FaultKind kind, int64_t delay_ms = 0) { return {kind, 500, "", "", {}, delay_ms, -1, ""}; }

std::string OwnKey() {
    const WalletLock lock(wallet_mutex);
    return wallet_keys.identity_pub;
}

// A wallet with one mined coin of 100,000 satoshis, and a payment of 549 to the watch address from it.
struct ServiceTest : testing::Test {
    ServiceTest() {
        receive = wallet.ReceiveAddress(0);
        funding = box.Fund(receive, 100'000);
        const ByteBuffer raw = PaymentFrom(funding);
        payment_hex = HexEncode(raw);
        payment = TxidOf(raw);
    }

    ByteBuffer PaymentFrom(const std::string& coin_id) const {
        Hash160 owner{};
        Hash160 watch{};
        EXPECT_TRUE(DecodeAddress(receive, owner) && DecodeAddress(kArcadeWatchAddress, watch));
        SpendInput coin;
        coin.txid = coin_id;
        coin.value = 100'000;
        const PayOutput outputs[] = {
            {549, P2pkhScript(watch)}, {0, DataCarrierScript("{\"a\":1}")}, {99'000, P2pkhScript(owner)}};
        const WalletLock lock(wallet_mutex);
        EXPECT_TRUE(SignInput(coin, {&coin, 1}, outputs, owner, wallet_keys.priv, wallet_keys.pub));
        return SerializeTx({&coin, 1}, outputs, /*skeleton=*/false);
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
    std::string receive;
    std::string funding;
    std::string payment;
    std::string payment_hex;
};

TEST_F(ServiceTest, TheChainApiListsWhatTheChainHolds) {
    const json mined_row = {{"height", 800'001},     {"isSpentInMempoolTx", false},
                            {"status", "confirmed"}, {"tx_hash", funding},
                            {"tx_pos", 0},           {"value", 100'000}};
    for (const char* const tail : {"/unspent/all", "/confirmed/unspent"}) {
        EXPECT_EQ(Listed(tail), json::array({mined_row}));
    }
    for (const char* const tail : {"/unconfirmed/unspent", "/unconfirmed/history"}) {
        EXPECT_EQ(Listed(tail), json::array());
    }
    const Answer taken = Post(kChain + "/tx/raw", {{"txhex", payment_hex}});
    EXPECT_TRUE(taken.good) << taken.error;
    EXPECT_EQ(taken.body, "\"" + payment + "\"\n");

    // In the mempool: the spent coin is flagged where there are flags, the change has its script, no height.
    json spent_row = mined_row;
    spent_row["isSpentInMempoolTx"] = true;
    Hash160 owner{};
    ASSERT_TRUE(DecodeAddress(receive, owner));
    const json change_row = {{"hex", HexEncode(P2pkhScript(owner))},
                             {"isSpentInMempoolTx", false},
                             {"status", "unconfirmed"},
                             {"tx_hash", payment},
                             {"tx_pos", 2},
                             {"value", 99'000}};
    EXPECT_EQ(Listed("/unspent/all"), json::array({spent_row, change_row}));
    EXPECT_EQ(Listed("/unconfirmed/unspent"), json::array({change_row}));
    const json legacy_row = {{"height", 800'001}, {"tx_hash", funding}, {"tx_pos", 0}, {"value", 100'000}};
    EXPECT_EQ(Get(AddressUrl("/unspent")).document, json::array({legacy_row}));
    EXPECT_EQ(Listed("/unconfirmed/history"), json::array({json{{"tx_hash", payment}}}));

    box.Mine();
    const json mined_change = Listed("/unspent/all");
    ASSERT_EQ(mined_change.size(), 1u) << "what a mined transaction has spent is gone";
    EXPECT_EQ(mined_change[0]["height"], 800'002);
    EXPECT_EQ(Listed("/confirmed/history?limit=1"),
              json::array({json{{"height", 800'002}, {"tx_hash", payment}}}));
    EXPECT_EQ(Get(AddressUrl("/history")).document.size(), 2u);

    EXPECT_FALSE(Get(kChain + "/address/nobody/unspent/all").good);
    EXPECT_EQ(Get(kChain + "/address/" + kReportFeeAddress + "/unspent/all").document["result"],
              json::array());
}

TEST_F(ServiceTest, TheChainApiPagesWhatIsMined) {
    std::string txid, reason;
    ASSERT_TRUE(box.Submit(payment_hex, txid, reason)) << reason;
    for (int i = 0; i < 1'001; ++i) box.Fund(receive, 1'000 + i);
    // 1,002 mined outputs in pages of 1,000, and the waiting change in the first page of the combined list.
    const auto sizes = [this](const std::string& tail, const char* join) {
        std::vector<std::size_t> list;
        std::set<std::string> seen;
        for (std::string token; list.size() < 10;) {
            const json page =
                Get(AddressUrl(tail + (token.empty() ? "" : join + ("token=" + token)))).document;
            list.push_back(page["result"].size());
            for (const json& row : page["result"]) {
                const json position = row.value("tx_pos", json());
                EXPECT_TRUE(seen.insert(row["tx_hash"].get<std::string>() + position.dump()).second);
            }
            token = page.value("nextPageToken", std::string());
            if (token.empty()) break;
        }
        return list;
    };
    using Sizes = std::vector<std::size_t>;
    EXPECT_EQ(sizes("/unspent/all", "?"), (Sizes{1'001, 2}));
    EXPECT_EQ(sizes("/confirmed/unspent", "?"), (Sizes{1'000, 2}));
    EXPECT_EQ(sizes("/confirmed/history", "?"), (Sizes{1'000, 2}));
    EXPECT_EQ(sizes("/confirmed/history?limit=400", "&"), (Sizes{400, 400, 202}));
    EXPECT_EQ(Get(AddressUrl("/unspent")).document.size(), 1'002u);
    for (const char* token : {"5000", "99999999999999999999", "x"}) {
        EXPECT_TRUE(Get(AddressUrl("/confirmed/unspent?token=" + std::string(token))).good);
    }
}

TEST_F(ServiceTest, TransactionsAreShownInBothForms) {
    EXPECT_FALSE(Get(kChain + "/tx/" + payment).good);
    EXPECT_FALSE(Get(kChain + "/tx/" + payment + "/hex").good);
    ASSERT_TRUE(Post(kFamily + "/oi/submit", {{"txhex", payment_hex}}).document["ok"].get<bool>());
    EXPECT_EQ(Get(kChain + "/tx/" + payment + "/hex").body, payment_hex);

    for (const std::string& url :
         {kChain + "/tx/" + payment, kChain + "/tx/hash/" + payment, kFamily + "/oi/tx/" + payment}) {
        const Answer answer = Get(url);
        const json& tx = answer.document;
        ASSERT_TRUE(answer.good && tx.is_object()) << url;
        EXPECT_EQ(tx["txid"], payment);
        EXPECT_EQ(tx["size"], payment_hex.size() / 2);
        EXPECT_EQ(tx["vin"][0]["txid"], funding);
        EXPECT_EQ(tx["vin"][0]["vout"], 0);
        EXPECT_EQ(tx["vout"][0]["scriptPubKey"]["addresses"], json::array({kArcadeWatchAddress}));
        EXPECT_EQ(tx["vout"][1]["scriptPubKey"]["hex"], "006a077b2261223a317d");
        EXPECT_EQ(tx["vout"][1]["scriptPubKey"]["type"], "nulldata");
        EXPECT_FALSE(tx.contains("blockheight"));
        // Amounts are decimal text of coins, never in exponent form.
        EXPECT_NE(answer.body.find("\"value\":0.00000549}"), std::string::npos) << answer.body;
        EXPECT_NE(answer.body.find("\"value\":0}"), std::string::npos);
        EXPECT_NE(answer.body.find("\"value\":0.00099}"), std::string::npos);
    }
    box.Mine();
    EXPECT_EQ(Get(kChain + "/tx/" + funding).document["confirmations"], 2);
    EXPECT_EQ(Get(kFamily + "/oi/oracle/brickfall/txids?limit=2000&offset=0").document["txids"],
              json::array({payment}));
    EXPECT_EQ(Get(kFamily + "/oi/oracle/brickfall/txids?limit=2000&offset=1").document["txids"],
              json::array());
    box.SetIndexerKnows(false);
    EXPECT_FALSE(Get(kFamily + "/oi/tx/" + payment).good);
    EXPECT_EQ(Get(kChain + "/tx/abc").error, "HTTP 400");
}

TEST_F(ServiceTest, EachBroadcastServiceRefusesInItsOwnWords) {
    std::string reason, txid;
    ASSERT_TRUE(box.Submit(payment_hex, txid, reason)) << reason;
    // The same coin again, and a transaction whose input nobody knows.
    std::string rival = payment_hex;
    rival.replace(rival.size() - 8, 8, "01000000");
    std::string orphan = payment_hex;
    orphan.replace(10, 2, orphan.substr(10, 2) == "00" ? "01" : "00");

    const struct {
        const char* why;
        std::string hex;
        std::string node;
        int arc_status;
    } rows[] = {
        {"no transaction", "00", "TX decode failed", 463},
        {"known", payment_hex, "257: txn-already-known", 200},
        {"conflict", rival, "258: txn-mempool-conflict", 200},
        {"orphan", orphan, "Missing inputs", 462},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
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
    for (const json& nonsense : {json(), json::array(), json{{"txhex", 5}, {"rawTx", nullptr}}}) {
        EXPECT_FALSE(Post(kChain + "/tx/raw", nonsense).good);
        EXPECT_FALSE(Post(kArcBroadcastUrl, nonsense).good);
        EXPECT_EQ(Post(kFamily + "/oi/submit", nonsense).document["ok"], false);
    }
}

// What its listing of inscriptions comes to stands in the stories of money.
TEST_F(ServiceTest, TokensStandInAListingOfTheirOwn) {
    box.MarkOrdinal(receive, {TestTxid(1), 3, "", true});
    const json tokens = Get(kOrdinals + "/bsv20/" + receive + "/unspent").document;
    ASSERT_EQ(tokens.size(), 1u);
    EXPECT_EQ(tokens[0]["outpoint"], TestTxid(1) + "_3");
    EXPECT_EQ(tokens[0]["spend"], "");
    EXPECT_EQ(Get(kOrdinals + "/txos/address/" + receive + "/unspent").document.size(), 1u);
}

TEST_F(ServiceTest, NamesAreGivenToWhoSignsForThem) {
    const std::string url = kFamily + "/api/paymail/claim";
    const auto sign = [](json claim) {
        std::string text = "OV-PAYMAIL-CLAIM|";
        for (const char* key : {"alias", "pubkey", "address", "avatar", "ordAddress"}) {
            if (claim.contains(key)) text += claim[key].get<std::string>() + "|";
        }
        std::string key, signature, error;
        text += std::to_string(claim["ts"].get<int64_t>());
        EXPECT_TRUE(SignIdentityMessage(text, key, signature, error)) << error;
        claim["sig"] = signature;
        return claim;
    };
    const std::string pubkey = OwnKey();
    const json plain = {
        {"alias", "ada"}, {"pubkey", pubkey}, {"address", receive}, {"avatar", ""}, {"ts", 1}};
    const json good = sign(plain);

    // Each change after signing must be noticed, and each field must be there.
    const json changes = {{"alias", "eve"},
                          {"address", kReportFeeAddress},
                          {"avatar", "x"},
                          {"ordAddress", receive},
                          {"ts", 2},
                          {"sig", std::string(86, 'A') + "=="},
                          {"pubkey", "02" + pubkey.substr(2, 63) + "0"}};
    for (const auto& [key, value] : changes.items()) {
        json forged = good;
        forged[key] = value;
        EXPECT_FALSE(Post(url, forged).good) << key;
        if (key == "ordAddress") continue;  // may be absent
        forged.erase(key);
        EXPECT_FALSE(Post(url, forged).good) << key;
    }
    EXPECT_FALSE(box.Identity("ada").has_value());
    EXPECT_FALSE(Get(kFamily + "/api/bsvalias/id/ada@" + kPaymailDomain).good);

    ASSERT_TRUE(Post(url, good).good);
    json with_ordinals = plain;
    with_ordinals.update({{"ordAddress", kReportFeeAddress}, {"avatar", "feff_0"}});
    ASSERT_TRUE(Post(url, sign(with_ordinals)).good) << "the same key may change what it said";
    EXPECT_EQ(box.Identity("ada")->ord_address, kReportFeeAddress);
    const json document = Get(kFamily + "/api/bsvalias/id/Ada@" + kPaymailDomain).document;
    EXPECT_EQ(document["pubkey"], pubkey);
    EXPECT_EQ(document["handle"], std::string("ada@") + kPaymailDomain);
    EXPECT_EQ(Get(kFamily + "/api/bsvalias/public-profile/ada@" + kPaymailDomain).document["ord"], "feff_0");
    EXPECT_FALSE(Get(kFamily + "/api/bsvalias/id/ada@elsewhere.test").good);

    // A name of somebody else's stays theirs. What the host says of a key is not the key's to change.
    box.Publish({"bob", "02" + std::string(64, '1'), kReportFeeAddress, "", "", false, "", ""});
    json taken = plain;
    taken["alias"] = "bob";
    const Answer refused = Post(url, sign(taken));
    EXPECT_EQ(refused.error.substr(0, 8), "HTTP 409");
    EXPECT_EQ(refused.document["error"], "that name is taken");
    box.Publish({"ada", pubkey, receive, "", "", true, "asked to stop", "maker"});
    ASSERT_TRUE(Post(url, good).good);
    const json note = Get(kFamily + "/api/paymail/identity/" + pubkey).document;
    EXPECT_EQ(note["frozen"], true);
    EXPECT_EQ(note["frozenNote"], "asked to stop");
    EXPECT_EQ(Get(kFamily + "/api/paymail/quota/" + pubkey).document["role"], "maker");
}

// What the other kinds do to payments and to the board stands in the stories.
TEST_F(ServiceTest, FaultsChangeAnswersAsTold) {
    const std::string all = AddressUrl("/unspent/all");
    box.AddFault(Service::kChain, {FaultKind::kReply, 429, "", "", {}, 0, /*times=*/2, "/unspent/all"});
    EXPECT_TRUE(Get(AddressUrl("/unspent")).good) << "another path";
    EXPECT_TRUE(Get(kOrdinals + "/txos/address/" + receive + "/unspent").good) << "another service";
    for (const bool good : {false, false, true}) EXPECT_EQ(Get(all).good, good) << "twice";
    EXPECT_EQ(box.Requests(Service::kChain).size(), 4u);
    EXPECT_EQ(box.Requests(Service::kChain)[1], "GET /v1/bsv/main/address/" + receive + "/unspent/all");

    box.ClearFaults();
    box.AddFault(Service::kChain, Of(FaultKind::kCutBody));
    const Answer cut = Get(all);
    EXPECT_FALSE(cut.good || cut.body.empty());
    EXPECT_FALSE(cut.error.starts_with("HTTP")) << "a broken connection, no status: " << cut.error;
}

TEST_F(ServiceTest, ConcurrentRequestsDoNotHoldUpAStop) {
    box.AddFault(Service::kChain, Of(FaultKind::kNoAnswer));
    box.AddFault(Service::kPaymail, Of(FaultKind::kDelay, 3'600'000));
    std::atomic<int> answered = 0;
    std::vector<std::thread> clients;
    for (const std::string& url : {AddressUrl("/unspent"), kFamily + "/api/paymail/quota/x"}) {
        clients.emplace_back([&answered, url] { answered += Get(url).good ? 1 : 0; });
    }
    while (box.Requests(Service::kChain).empty() || box.Requests(Service::kPaymail).empty()) {
        std::this_thread::yield();
    }
    box.Stop();
    for (std::thread& client : clients) client.join();
    EXPECT_EQ(answered, 0);
    EXPECT_EQ(box.Port(), 0);
}

TEST_F(ServiceTest, TheControlEndpointDoesWhatTheInterfaceDoes) {
    const std::string url = kControl + "/balance/" + kReportFeeAddress;
    const json fund = {{"address", kReportFeeAddress}, {"satoshis", 700}};
    EXPECT_EQ(Post(kControl + "/fund", fund).document["txid"].get<std::string>().size(), 64u);
    EXPECT_EQ(Get(url).document["satoshis"], 700);
    EXPECT_TRUE(Post(kControl + "/mine", json::object()).good);
    EXPECT_EQ(Get(kControl + "/transactions").document["transactions"], box.RawTransactions());
    EXPECT_EQ(Get(kControl + "/state").document,
              (json{{"fees", 0}, {"funded", 100'700}, {"transactions", 2}, {"unspent", 100'700}}));
    const json fault = {{"service", "download"},
                        {"kind", "reply"},
                        {"status", 503},
                        {"times", 1},
                        {"body", ""},
                        {"headers", {{"Retry-After", "1"}}}};
    EXPECT_TRUE(Post(kControl + "/fault", fault).good);
    EXPECT_FALSE(Get(kDownloadPageUrl).good);
    EXPECT_TRUE(Get(kDownloadPageUrl).good);
    EXPECT_EQ(Get(kControl + "/requests/download").document["requests"],
              json::array({"GET /download", "GET /download"}));

    EXPECT_NE(Get(kDownloadPageUrl).body.find("Current build: Version 0.001<"), std::string::npos);
    EXPECT_TRUE(Post(kControl + "/build", {{"build", "0.002"}}).good);
    EXPECT_NE(Get(kDownloadPageUrl).body.find("Current build: Version 0.002<"), std::string::npos);

    const auto refuses = [](const std::string& path, json body, const char* key, const json& values) {
        for (const json& value : values) {
            body[key] = value;
            EXPECT_FALSE(Post(kControl + path, body).good) << key << " " << value;
        }
    };
    refuses("/build", json::object(), "build", {2, "", "<b>", std::string(33, '1')});
    refuses("/fund", fund, "satoshis", {-5, 1.5, "5", nullptr});
    const json bad = {{"service", "moon"}, {"kind", "tide"}, {"status", 5}, {"times", "x"}, {"headers", 1}};
    for (const auto& [key, value] : bad.items()) refuses("/fault", fault, key.c_str(), value);
    EXPECT_FALSE(Get(kControl + "/nothing").good);
    EXPECT_FALSE(Get("https://" + std::string(kPaymailDomain) + "/nothing").good);
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
        const std::string authority = *ReadFile(first.CaFile());
        const std::string lost_coin = first.Fund(receive, 100'000);
        const std::string coin = first.Fund(receive, 100'000);
        ASSERT_TRUE(first.Submit(HexEncode(PaymentFrom(lost_coin)), txid, reason)) << reason;
        first.Forget(txid);
        ASSERT_TRUE(first.Submit(HexEncode(PaymentFrom(coin)), txid, reason)) << reason;
        first.Mine();
        first.Publish({"bob", "02" + std::string(64, '1'), receive, "face", "", true, "why", "maker"});
        SetConnectRoute({first.ConnectTo(), first.CaFile(), 1});
        ASSERT_EQ(ClaimPaymail("ada", OwnKey(), receive, "", ""), "");
        transactions = first.RawTransactions();

        first.Stop();
        ASSERT_TRUE(first.Start(error)) << "again, on the same chain: " << error;
        EXPECT_EQ(first.RawTransactions(), transactions);
        EXPECT_EQ(*ReadFile(first.CaFile()), authority);
        EXPECT_EQ(std::filesystem::status(options.folder + "/authority.key").permissions(),
                  std::filesystem::perms(0600));
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
        EXPECT_FALSE(second.Submit(payment_hex, txid, reason)) << "that coin is on another chain";
    }
    ASSERT_TRUE(WriteFile(options.journal_file, "{\"kind\":\"moon\"}\n"));
    sandbox::Sandbox third(options);
    EXPECT_FALSE(third.Start(error));
    EXPECT_NE(error.find("line 1"), std::string::npos) << error;
}

TEST(SandboxProgram, ServesUntilASignalAndRefusesWrongCommandLines) {
    const TempFolder folder;
    const std::string port_file = folder.Path() + "/port";
    const std::string authority = folder.Path() + "/authority";
    {
        const std::string users = folder.Path() + "/userinfo";
        ChildProcess program(
            kProgram, {"--folder", authority, "--seed-board", "--port-file", port_file, "--userinfo", users});
        const auto ready = program.ReadUntil("sandbox ready on 127.0.0.1:");
        ASSERT_TRUE(ready.has_value());
        const std::string port = *ReadFile(port_file);
        EXPECT_EQ(*ready + "\n", "sandbox ready on 127.0.0.1:" + port.substr(0, port.size() - 1) +
                                     ", authority " + authority + "/authority.pem\n");
        EXPECT_TRUE(FileExists(users + "/encpub-architect.txt"));
        program.Signal(SIGTERM);
        EXPECT_EQ(program.Wait(), 0);
    }
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{},
                                               {"--folder", ""},
                                               {"--folder", authority, "--port"},
                                               {"--folder", authority, "--port", "70000"},
                                               {"--folder", authority, "--port", "1x"},
                                               {"--folder", authority, "--verbose"}}) {
        EXPECT_EQ(ChildProcess(kProgram, arguments).Wait(), 2);
    }
    EXPECT_EQ(ChildProcess(kProgram, {"--folder", port_file}).Wait(), 1) << "a file is no folder";
}

}  // namespace
}  // namespace brickfall
