// What the services say of the wallet's coins, and how it is read.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/support/wallet_fixture.h"
#include "wallet/chain/address_refresh.h"
#include "wallet/chain/chain_api.h"
#include "wallet/chain/ordinals_api.h"
#include "wallet/coins/ordinal_guard.h"
#include "wallet/coins/own_transactions.h"
#include "wallet/coins/spent_set.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/keys/key_derivation.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/payment/coin_selection.h"
#include "wallet/payment/output_recovery.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/outpoint.h"
#include "wallet/session/coin_refresh.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/app_binds.h"

namespace brickfall {
namespace {

using nlohmann::json;
using sandbox::FaultKind;
using sandbox::Service;

std::string Replace(std::string text, const std::string& mark, const std::string& by) {
    for (std::size_t at = 0; (at = text.find(mark, at)) != std::string::npos; at += by.size()) {
        text.replace(at, mark.size(), by);
    }
    return text;
}

TEST(ParseUtxoList, TakesEachShapeAndDropsWhatIsNoOutput) {
    // "@" stands for a good id, number 1. Told as the outputs, "none" for what is no list.
    const auto read = [](const std::string& text) -> std::string {
        std::vector<Utxo> list;
        return ParseUtxoList(Replace(text, "@", TestTxid(1)), list) ? CoinText(list) : "none";
    };
    for (const char* body : {"{}", R"({"result":{}})", R"("[]")", "<html>"}) {
        EXPECT_EQ(read(body), "none") << body;
    }
    const std::string upper(64, 'C');
    const std::pair<std::string, std::string> rows[] = {
        {R"({"height":9,"tx_pos":3,"tx_hash":"@","value":5,"isSpentInMempoolTx":false})", "1:3=5"},
        {R"({"txid":"@","vout":4,"value":5})", "1:4=5"},
        {R"({"tx_hash":7,"txid":"@","value":5,"isSpentInMempoolTx":"true"})", "1:0=5"},
        {R"({"tx_hash":"@","tx_pos":"1","vout":2,"value":5})", "1:2=5"},
        {R"(7,null,[],{"tx_hash":"@","tx_pos":4294967296,"value":5},{"tx_hash":"@","value":6},"x")", "1:0=6"},
        {R"({"tx_hash":")" + upper + R"(","value":9223372036854775807})", upper + ":0=9223372036854775807"},
    };
    for (const auto& [elements, outputs] : rows) {
        EXPECT_EQ(read("[" + elements + "]"), outputs) << elements;
        EXPECT_EQ(read(R"({"result":[)" + elements + R"(],"error":""})"), outputs) << elements;
    }
    for (const char* dropped :
         {R"("tx_hash":"@","value":5,"isSpentInMempoolTx":true)", R"("tx_hash":"bad","txid":"@","value":5)",
          R"("tx_hash":"@0","value":5)", R"("tx_hash":"@","value":0)", R"("tx_hash":"@","value":5.0)",
          R"("tx_hash":"@")", R"("tx_hash":"@","value":9223372036854775808)"}) {
        EXPECT_EQ(read(std::string("[{") + dropped + "}]"), "") << dropped;
    }
}

struct CoinNetwork : testing::Test {
    void Reply(const std::string& path, const json& body) {
        services.Reply(Service::kChain, path, 200, body.dump());
    }
    // With 500 for an empty body.
    void ReplyOrFail(const std::string& path, const std::string& body) {
        services.Reply(Service::kChain, path, body.empty() ? 500 : 200, body);
    }

    // FetchUtxos, told as the outputs, "incomplete " in front of them, or the error.
    std::string Fetch() const {
        std::vector<Utxo> list{{TestTxid(60), 0, 1}};  // must not survive
        std::string error = "left over";
        bool complete = true;
        if (!FetchUtxos(address, list, error, &complete)) return "error: " + error;
        EXPECT_EQ(error, "");
        return (complete ? "" : "incomplete ") + CoinText(list);
    }

    // The addresses whose outputs the ordinals service was asked about.
    std::string Scans() const {
        std::string scanned;
        for (const std::string& request : services.box.Requests(Service::kOrdinals)) {
            const std::size_t at = request.find("/txos/address/");
            if (at == std::string::npos) continue;
            const std::string rest = request.substr(at + 14);
            scanned += (scanned.empty() ? "" : " ") + rest.substr(0, rest.find('/'));
        }
        return scanned;
    }

    WalletFixture wallet{"ada", /*last_receive=*/0};
    SandboxFixture services;
    const std::string address = wallet.ReceiveAddress(0), identity = wallet.IdentityAddress();
};

json Listed(uint32_t number, int64_t value) {
    return {{"tx_hash", TestTxid(number)}, {"tx_pos", 0}, {"value", value}};
}

TEST_F(CoinNetwork, FetchFallsBackOnTheTwoOlderListings) {
    const std::string down;
    const std::string one = json::array({Listed(1, 10)}).dump();
    const std::string several = json{Listed(1, 10), Listed(2, 30)}.dump();
    const std::string result = json{{"result", json::array({Listed(3, 20)})}}.dump();
    const struct {
        const char* why;
        std::string all, unconfirmed, confirmed, told;
    } rows[] = {
        {"largest first, and complete", down, several, result, "2:0=30 3:0=20 1:0=10"},
        {"the unconfirmed alone", "{}", one, down, "incomplete 1:0=10"},
        {"the confirmed alone", down, down, result, "3:0=20"},
        {"the last failure is the one told", down, "<html>", down, "error: bad utxo list"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        services.box.ClearFaults();
        services.box.ClearRequests();
        ReplyOrFail("/unspent/all", row.all);
        ReplyOrFail("/unconfirmed/unspent", row.unconfirmed);
        ReplyOrFail("/unspent", row.confirmed);
        EXPECT_EQ(Fetch(), row.told);
        EXPECT_EQ(services.Asked(Service::kChain, "/unspent"), 3);
    }
    services.box.ClearFaults();
    json flipped = Listed(1, 70);
    flipped["tx_hash"] = FlipTxidHex(TestTxid(1));
    Reply("/unspent/all", {Listed(1, 50), Listed(2, 60), flipped, Listed(2, 40)});
    EXPECT_EQ(Fetch(), FlipTxidHex(TestTxid(1)) + ":0=70 2:0=60") << "one of each outpoint";
}

TEST_F(CoinNetwork, TheNewestSixteenUnconfirmedTransactionsAreReadForWhatTheySpend) {
    // Transaction 20+i spends output i; number 20 is the oldest of seventeen.
    json history = json::array(), listing = json::array({Listed(18, 5)});
    for (uint32_t i = 0; i < 17; ++i) {
        listing.push_back(Listed(i, 100 - i));
        history.push_back({{"tx_hash", TestTxid(20 + i)}});
        const std::string spent = i % 2 == 0 ? TestTxid(i) : FlipTxidHex(TestTxid(i));
        Reply("/tx/" + TestTxid(20 + i), {{"vin", {{{"txid", spent}, {"vout", 0}}, {{"coinbase", ""}}}}});
    }
    history.insert(history.begin() + 3, json::object({{"tx_hash", "short"}}));
    Reply("/unconfirmed/history", {{"result", history}});
    Reply("/unspent/all", listing);
    EXPECT_EQ(Fetch(), "0:0=100 18:0=5");
    EXPECT_EQ(services.Asked(Service::kChain, "/tx/"), 16);

    services.box.ClearFaults();
    Reply("/unspent/all", {Listed(1, 50), Listed(2, 40), Listed(3, 30), Listed(4, 20)});
    Reply("/unconfirmed/history",
          {{{"txid", TestTxid(21)}}, {{"tx_hash", TestTxid(22)}}, {{"tx_hash", TestTxid(23)}}});
    Reply("/tx/" + TestTxid(21), {{"vin", json::array({{{"txid", TestTxid(1)}}})}});
    ReplyOrFail("/tx/" + TestTxid(22), "");
    Reply("/tx/" + TestTxid(23),
          {{"vin", {{{"txid", TestTxid(3)}, {"vout", 1e300}}, {{"txid", TestTxid(4)}, {"vout", 1}}}}});
    EXPECT_EQ(Fetch(), "2:0=40 3:0=30 4:0=20") << "only 1 is spent: 3 and 4 at other indices";
}

TEST_F(CoinNetwork, ATransactionIsVisibleThroughEitherRead) {
    const std::string path = "/tx/" + TestTxid(1);
    const auto visible = [&](std::size_t hex_bytes, const char* decoded) {
        services.box.ClearFaults();
        ReplyOrFail(path + "/hex", std::string(hex_bytes, '0'));
        ReplyOrFail(path, decoded);
        return TxVisible(TestTxid(1));
    };
    EXPECT_TRUE(visible(21, "{}"));
    EXPECT_FALSE(visible(20, R"({"hash":"x"})")) << "too short, and the other names no id";
    EXPECT_TRUE(visible(0, R"({"txid":"x"})"));
    services.box.ClearRequests();
    EXPECT_FALSE(TxVisible(TestTxid(1).substr(1)));
    EXPECT_EQ(services.Asked(Service::kChain), 0);
}

TEST_F(CoinNetwork, APlainScanPassesOverInscriptionsTokensAndSingleSatoshis) {
    const char* elements[] = {
        R"("origin":null,"data":null)",
        R"("origin":"any text")",
        R"("origin":{"outpoint":"x_0"})",
        R"("origin":{"outpoint":""})",
        R"("origin":{"outpoint":7})",
        R"("origin":"")",
        R"("data":{"bsv20":7})",
        R"("data":{"bsv21":{}})",
        R"("satoshis":1)",
        R"("satoshis":"many","value":44.9)",
        R"("satoshis":2100000000000001)",  // more than there are
        R"("vout":-1)",
        R"("vout":"2","origin":null,"data":{"list":null,"bsv20":null,"insc":null})",
    };
    json listing = {"no object"};
    for (uint32_t number = 1; number <= std::size(elements); ++number) {
        json element = {{"txid", TestTxid(number)}, {"vout", 1}, {"satoshis", 10 + number}};
        element.update(json::parse("{" + std::string(elements[number - 1]) + "}"));
        listing.push_back(element);
    }
    listing.push_back(listing[1]);
    listing.back()["txid"] = FlipTxidHex(TestTxid(1));
    services.Reply(Service::kOrdinals, "/txos/address/", 200, listing.dump());
    std::vector<Utxo> list;
    EXPECT_TRUE(ScanPlainOutputs(address, list));
    EXPECT_EQ(CoinText(list), "1:1=11 4:1=14 5:1=15 6:1=16 10:1=44 13:0=23");
    EXPECT_FALSE(ScanPlainOutputs("", list));
    for (const char* body : {"[]", "nonsense", R"([{"txid":7}])"}) {
        services.box.ClearFaults();
        services.Reply(Service::kOrdinals, "/txos/address/", 200, body);
        EXPECT_FALSE(ScanPlainOutputs(address, list)) << body;
        EXPECT_TRUE(list.empty()) << body;
    }
}

TEST_F(CoinNetwork, AScanCountsWhatItsListingNames) {
    // "A" to "C" stand for ids of these digits.
    const struct {
        const char *why, *outputs, *tokens;  // no tokens: refused
        bool ok;
        const char* keys;
    } rows[] = {
        {"plain outputs", R"([{"txid":"A","origin":null},{"txid":"B"}])", "[]", true, ""},
        {"inscriptions", R"([{"txid":"A","origin":"x"},{"txid":"B","origin":{"outpoint":"y"}},7])", "[]",
         true, "AB"},
        {"index out of range", R"([{"txid":"A","vout":-1,"origin":"x"},{"txid":"B","origin":"x"}])", "[]",
         true, "B"},
        {"a wrong type", R"([{"txid":"A","origin":"x"},{"txid":7,"origin":"x"}])", "[]", false, "A"},
        {"the wrong type without an origin", R"([{"txid":7}])", "[]", true, ""},
        {"an index as text", R"([{"txid":"A","vout":"0","origin":"x"}])", "[]", false, ""},
        {"no list", "{}", "[]", false, ""},
        {"tokens", "[]",
         R"([{"txid":"A","spend":""},{"txid":"B","spend":null,"vout":null},{"txid":"C","spend":"x"},7])",
         true, "AB"},
        {"up to a wrong type", "[]", R"([{"txid":"A"},{"txid":"B","vout":true},{"txid":"C"}])", true, "A"},
        {"tokens refused", R"([{"txid":"A","origin":"x"}])", "", true, "A"},
    };
    const auto with_ids = [](std::string text) {
        for (const char id : {'A', 'B', 'C'}) {
            text = Replace(text, {'"', id, '"'}, '"' + std::string(64, id) + '"');
        }
        return text;
    };
    for (const auto& row : rows) {
        services.box.ClearFaults();
        services.Reply(Service::kOrdinals, "/txos/address/", 200, with_ids(row.outputs));
        services.Reply(Service::kOrdinals, "/bsv20/", row.tokens[0] == 0 ? 500 : 200, with_ids(row.tokens));
        std::set<std::string> keys{"left over"}, expected;
        for (const char id : std::string(row.keys)) expected.insert(OutpointKey(std::string(64, id), 0));
        EXPECT_EQ(ScanOrdinals(address, keys), row.ok) << row.why;
        EXPECT_EQ(keys, expected) << row.why;
    }
    services.box.ClearRequests();
    std::set<std::string> keys;
    EXPECT_FALSE(ScanOrdinals("", keys));
    EXPECT_EQ(services.Asked(Service::kOrdinals), 0);
}

TEST_F(CoinNetwork, APaymentFetchesOnlyWhatIsNotKnown) {
    WalletLock lock(wallet_mutex);
    std::string error;
    ReplyOrFail(address, "");
    Reply(identity + "/unspent/all", json::array({Listed(2, 40)}));
    EXPECT_TRUE(EnsureUtxoCache(lock, error)) << "a fetch that failed is a fetch";
    EXPECT_EQ(CachedText(address), "?");
    EXPECT_EQ(CachedText(identity), "2:0=40");
    EXPECT_EQ(Scans(), identity) << "once, and only where there are coins";
    EXPECT_FALSE(OrdinalsOutageRunning());

    services.box.ClearFaults();
    services.box.ClearRequests();
    Reply(address + "/unspent/all", json::array({Listed(1, 50)}));
    wallet.clock.AdvanceMs(3'600'000);
    EXPECT_TRUE(EnsureUtxoCache(lock, error));
    EXPECT_EQ(CachedText(address), "1:0=50");
    EXPECT_EQ(services.Asked(Service::kChain, identity), 0) << "valid, however old";
    EXPECT_EQ(Scans(), address);
    services.box.ClearRequests();
    EXPECT_TRUE(EnsureUtxoCache(lock, error));
    EXPECT_EQ(services.Asked(Service::kChain), 0);
    EXPECT_TRUE(lock.owns_lock());
    EXPECT_EQ(Scans(), "");

    // A scan whose list of tokens fails counts, and is made again by the next payment.
    NoteListing(address);
    for (const bool fails : {true, true, false, false}) {
        services.box.ClearFaults();
        services.box.ClearRequests();
        services.Reply(Service::kOrdinals, "/bsv20/", fails ? 500 : 200,
                       json{{{"txid", TestTxid(1)}, {"vout", 0}}}.dump());
        EXPECT_TRUE(EnsureUtxoCache(lock, error));
        EXPECT_FALSE(OrdinalsOutageRunning());
        EXPECT_EQ(IsOrdinalForAddress(address, {TestTxid(1), 0, 50}), !fails);
    }
    EXPECT_EQ(Scans(), "") << "the whole one was the last";

    // A listing without a scan leaves its outputs uncovered; a service that fails is asked again after a
    // while.
    ApplyRefresh({{address, {{TestTxid(1), 0, 50}, {TestTxid(3), 0, 60}}, /*ok=*/true, {}}});
    services.Reply(Service::kOrdinals, "/txos/", 500, "");
    for (const int pause : {0, 19'999, 1}) {
        wallet.clock.AdvanceMs(pause);
        services.box.ClearRequests();
        EXPECT_TRUE(EnsureUtxoCache(lock, error));
        EXPECT_EQ(Scans(), pause == 19'999 ? "" : address) << pause;
        EXPECT_EQ(services.Asked(Service::kChain), 0);
        EXPECT_TRUE(OrdinalsOutageRunning());
    }

    ClearWalletState();
    SetWalletId("");
    EXPECT_FALSE(EnsureUtxoCache(lock, error));
    EXPECT_EQ(error, "no wallet");
}

TEST_F(CoinNetwork, ARescanAddsWhatTheOrdinalsServiceKnowsAndIsUnspent) {
    WalletLock lock(wallet_mutex);
    StoreUtxoList(address, {{TestTxid(1), 0, 50}}, true, false);
    pending_outputs.push_back({TestTxid(9), 0, 90, {}, {}, AddressHash(address)});
    MarkSpentInMemory(TestTxid(2), 0);
    const auto element = [](uint32_t number) { return json{{"txid", TestTxid(number)}, {"satoshis", 20}}; };
    services.Reply(Service::kOrdinals, "/txos/address/" + address, 200, json{element(2), element(3)}.dump());
    RescanPlainOutputs(lock);
    EXPECT_EQ(CachedText(address), "9:0=90 1:0=50 3:0=20");
    EXPECT_TRUE(pending_outputs.empty()) << "the second opinion does not know it";
    EXPECT_EQ(CachedText(identity), "-");
    EXPECT_TRUE(lock.owns_lock());
}

TEST_F(CoinNetwork, ARefreshFetchesEveryRecordAndFewAtOnce) {
    services.box.Fund(address, 9'000);
    // Slow, so that as many requests meet as were begun.
    services.box.AddFault(Service::kChain,
                          {FaultKind::kDelay, 500, "", "", {}, /*delay_ms=*/300, -1, "/unspent/all"});
    std::vector<AddressRefresh> records(128);
    for (AddressRefresh& record : records) record.address = address;
    FetchRefreshRecords(records, OrdinalScans::kAll);
    for (const AddressRefresh& record : records) {
        EXPECT_TRUE(record.ok && record.complete && record.guard_ok);
        ASSERT_EQ(record.utxos.size(), 1u);
        EXPECT_EQ(record.utxos[0].value, 9'000);
    }
    EXPECT_LE(services.box.MostRequestsAtOnce(), 64);
}

TEST_F(CoinNetwork, TheWalletsOutputsOfATransactionAreReadBack) {
    const WalletLock lock(wallet_mutex);
    const std::string txid = TestTxid(40);
    wallet_keys.recv[1] = 2;
    RefreshDerivedKeys();
    MarkSpentInMemory(txid, 5);
    // "@" stands for an address that is not the current one; the index is where the output stands unless `n`
    // says otherwise.
    std::string body = R"({"vout":[
        {"value":0.00005,"scriptPubKey":{"addresses":["@"]}},
        {"value":5000,"scriptPubKey":{"address":"@"}},
        {"value":7,"satoshis":1234,"n":12,"scriptPubKey":{"addresses":["FOREIGN","IDENTITY"],"address":"@"}},
        {"value":0.000077,"scriptPubKey":{"addresses":["FOREIGN",7]}},
        "no object",
        {"value":0.00005,"scriptPubKey":{"address":"@"}},
        {"value":0.0000000049,"scriptPubKey":{"address":"@"}},
        {"satoshis":2100000000000001,"scriptPubKey":{"address":"@"}},
        {"satoshis":5,"n":4294967296,"scriptPubKey":{"address":"@"}},
        {"value":0.00000003,"n":1.0,"scriptPubKey":{"address":"@"}},
        {"value":0.00000029,"n":13,"scriptPubKey":{"address":"@"}},
        {"value":0.00000029,"n":1,"scriptPubKey":{"address":"@"}}]})";
    body = Replace(Replace(body, "@", address), "FOREIGN", wallet.ReceiveAddress(3));
    services.Reply(Service::kChain, "/tx/" + txid + "/decoded", 200, Replace(body, "IDENTITY", identity));
    services.Reply(Service::kChain, "/tx/" + txid, 404, "");
    EXPECT_FALSE(RecoverOutputsFromTx(txid.substr(1)));
    EXPECT_TRUE(RecoverOutputsFromTx(txid));
    EXPECT_EQ(CoinText(pending_outputs), "40:0=5000 40:1=5000 40:12=1234 40:9=3 40:13=29");
    for (const PendingOutput& output : pending_outputs) {
        const std::string owner = output.vout == 12 ? identity : address;
        EXPECT_EQ(AddressFromPublicKey(output.pub), owner);
        EXPECT_EQ(Base58CheckEncode(output.hash), owner);
    }
    EXPECT_FALSE(RecoverOutputsFromTx(txid)) << "nothing new";

    // More than a process may lock pages or map them, had each a copy of its key.
    std::string outputs;
    for (int n = 0; n < 70'000; ++n)
        outputs += R"(,{"value":7,"scriptPubKey":{"address":")" + address + "\"}}";
    services.box.ClearFaults();
    services.Reply(Service::kChain, "/tx/", 200, "{\"vout\":[" + outputs.substr(1) + "]}");
    EXPECT_TRUE(RecoverOutputsFromTx(TestTxid(43)));
    EXPECT_EQ(pending_outputs.size(), 70'005u);
    EXPECT_EQ(services.Asked(Service::kChain, TestTxid(43)), 1) << "the first form was enough";

    for (const char* broken : {"[]", "{}", R"({"vout":{}})", "{"}) {
        services.box.ClearFaults();
        services.Reply(Service::kChain, "/tx/", 200, broken);
        EXPECT_FALSE(RecoverOutputsFromTx(TestTxid(41))) << broken;
    }

    // A collection that finds nothing looks at the last transactions.
    services.box.ClearFaults();
    pending_outputs.clear();
    last_recorded_txid = TestTxid(41);
    last_broadcast_txid = TestTxid(42);
    ReplyOrFail("/tx/" + TestTxid(41), "");
    ReplyOrFail("/tx/" + TestTxid(42),
                R"({"vout":[{"value":0.0005,"scriptPubKey":{"address":")" + address + R"("}}]})");
    std::vector<SpendInput> inputs;
    int64_t total = 0;
    std::string error;
    EXPECT_TRUE(CollectSpendable(inputs, total, error)) << error;
    EXPECT_EQ(CoinText(inputs), "42:0=50000");
    EXPECT_EQ(total, 50'000);
}

}  // namespace
}  // namespace brickfall
