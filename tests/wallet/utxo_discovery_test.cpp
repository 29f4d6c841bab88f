#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

#include "tests/support/wallet_fixture.h"
#include "wallet/chain/address_refresh.h"
#include "wallet/chain/chain_api.h"
#include "wallet/chain/ordinals_api.h"
#include "wallet/coins/balance_cache.h"
#include "wallet/coins/ordinal_guard.h"
#include "wallet/coins/spent_set.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/json/json_numbers.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/hashes.h"
#include "wallet/protocol/outpoint.h"
#include "wallet/session/coin_refresh.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/app_binds.h"

namespace brickfall {
namespace {

using nlohmann::json;
using sandbox::Fault;
using sandbox::FaultKind;
using sandbox::Service;

// The coinbase transaction of the genesis block, in display order and as its bytes lie in memory.
constexpr char kGenesis[] = "4a5e1e4baab89f3a32518a88c31bc87f618f76673e2cc77ab2127b7afdeda33b";
constexpr char kGenesisFlipped[] = "3ba3edfd7a7b12b27ac72c3e67768f617fc81bc3888a51323a9fb8aa4b1e5e4a";

std::string Upper(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::toupper(c); });
    return text;
}

// "number:vout=value" for each output, where the id is TestTxid(number); other ids stand as they are.
std::string Describe(const std::vector<Utxo>& list) {
    std::string text;
    for (const Utxo& utxo : list) {
        std::string name = utxo.txid;
        for (uint32_t number = 0; number < 64; ++number) {
            if (name == TestTxid(number)) name = std::to_string(number);
        }
        if (!text.empty()) text += " ";
        text += name + ":" + std::to_string(utxo.vout) + "=" + std::to_string(utxo.value);
    }
    return text;
}

TEST(Outpoints, AreTheSameInEitherByteOrder) {
    EXPECT_EQ(OutpointKey(Upper(kGenesis), 7), std::string(kGenesis) + ":7");
    EXPECT_EQ(FlipTxidHex(Upper(kGenesis)), kGenesisFlipped);
    EXPECT_EQ(FlipTxidHex(std::string(kGenesis).substr(2)), "");
    EXPECT_EQ(FlipTxidHex(std::string(kGenesis) + "00"), "");
    const auto same = [](const Utxo& a, const Utxo& b) {
        EXPECT_EQ(SameOutpoint(a, b), SameOutpoint(b, a));
        return SameOutpoint(a, b);
    };
    EXPECT_TRUE(same({Upper(kGenesis), 1}, {kGenesis, 1}));
    EXPECT_TRUE(same({kGenesisFlipped, 1}, {Upper(kGenesis), 1}));
    EXPECT_TRUE(same({"AAbb", 0}, {"aabb", 0}));
    EXPECT_FALSE(same({"aabb", 0}, {"bbaa", 0})) << "short ids have one order only";
    EXPECT_FALSE(same({kGenesis, 1}, {kGenesis, 2}));
    EXPECT_FALSE(same({kGenesis, 1}, {kGenesisFlipped, 0}));
    EXPECT_FALSE(same({kGenesis, 1}, {TestTxid(1), 1}));
}

TEST(ForeignNumbers, HaveADefinedOutcomeAtEveryConversion) {
    const struct {
        const char* text;
        std::optional<uint32_t> index;
        std::optional<int64_t> satoshis;
        int64_t clamped;
    } rows[] = {
        {"0", 0, {}, 0},
        {"3.0", 3, 3, 3},
        {"2.999", 2, 2, 2},
        {"0.999", 0, {}, 0},
        {"-0.5", 0, {}, 0},
        {"-1", {}, {}, -1},
        {"4294967295", UINT32_MAX, 4294967295, 4294967295},
        {"4294967296", {}, 4294967296, 4294967296},
        {"2100000000000000", {}, kMaxSatoshis, kMaxSatoshis},
        {"2100000000000001", {}, {}, 2100000000000001},
        {"9223372036854775807", {}, {}, INT64_MAX},
        {"9223372036854775808", {}, {}, INT64_MAX},
        {"18446744073709551615", {}, {}, INT64_MAX},
        {"18446744073709551616", {}, {}, INT64_MAX},
        {"-9223372036854775808", {}, {}, INT64_MIN},
        {"-1e19", {}, {}, INT64_MIN},
        {"1e300", {}, {}, INT64_MAX},
        {"\"3\"", {}, {}, 0},
        {"true", {}, {}, 0},
        {"null", {}, {}, 0},
    };
    for (const auto& row : rows) {
        const json number = json::parse(row.text);
        EXPECT_EQ(JsonIndex(number), row.index) << row.text;
        EXPECT_EQ(JsonSatoshis(number), row.satoshis) << row.text;
        EXPECT_EQ(JsonClampedInt64(number), row.clamped) << row.text;
    }
}

TEST(ParseUtxoList, TakesEachShapeAndDropsWhatIsNoOutput) {
    // "@" stands for a good id, number 1. Told as the outputs, "none" for what is no list.
    const auto read = [](std::string text) -> std::string {
        for (std::size_t at; (at = text.find('@')) != std::string::npos;) text.replace(at, 1, TestTxid(1));
        std::vector<Utxo> list;
        return ParseUtxoList(text, list) ? Describe(list) : "none";
    };
    for (const char* body : {"{}", R"({"result":{}})", R"({"result":null})", R"("[]")", "<html>"}) {
        EXPECT_EQ(read(body), "none") << body;
    }
    const std::pair<std::string, const char*> rows[] = {
        {R"({"height":9,"tx_pos":3,"tx_hash":"@","value":5,"isSpentInMempoolTx":false})", "1:3=5"},
        {R"({"txid":"@","vout":4,"value":5})", "1:4=5"},
        {R"({"tx_hash":"@","value":5,"isSpentInMempoolTx":"true"})", "1:0=5"},
        {R"({"tx_hash":7,"txid":"@","value":5})", "1:0=5"},
        {R"({"tx_hash":"@","tx_pos":1,"vout":2,"value":5})", "1:1=5"},
        {R"({"tx_hash":"@","tx_pos":"1","vout":2,"value":5})", "1:2=5"},
        {R"(7,null,[],{"tx_hash":"@","tx_pos":4294967296,"value":5},{"tx_hash":"@","value":6},"x")", "1:0=6"},
        {R"({"tx_hash":"@","value":9223372036854775807})", "1:0=9223372036854775807"},
    };
    for (const auto& [elements, outputs] : rows) {
        EXPECT_EQ(read("[" + elements + "]"), outputs) << elements;
        EXPECT_EQ(read(R"({"result":[)" + elements + R"(],"error":""})"), outputs) << elements;
    }
    for (const char* dropped :
         {R"("tx_hash":"@","value":5,"isSpentInMempoolTx":true)", R"("tx_hash":"bad","txid":"@","value":5)",
          R"("value":5)", R"("tx_hash":"@0","value":5)", R"("tx_hash":"@","value":0)",
          R"("tx_hash":"@","value":-5)", R"("tx_hash":"@","value":1.5)", R"("tx_hash":"@","value":5.0)",
          R"("tx_hash":"@","value":"5")", R"("tx_hash":"@")",
          R"("tx_hash":"@","value":9223372036854775808)"}) {
        EXPECT_EQ(read(std::string("[{") + dropped + "}]"), "") << dropped;
    }
    EXPECT_EQ(read(R"([{"tx_hash":")" + Upper(kGenesis) + R"(","value":5}])"), Upper(kGenesis) + ":0=5");
}

// What the cache holds for an address, with "?" in front while it is not valid, "-" when it has no entry.
std::string Cached(const std::string& address) {
    std::vector<Utxo> list;
    bool valid = false;
    if (!CachedUtxos(address, list, valid)) return "-";
    return (valid ? "" : "?") + Describe(list);
}

class UtxoCache : public testing::Test {
  protected:
    UtxoCache() : address(wallet.ReceiveAddress(0)), other(wallet.ReceiveAddress(1)) {
        EXPECT_TRUE(wallet.loaded);
        EXPECT_TRUE(DecodeAddress(address, hash));
        EXPECT_TRUE(DecodeAddress(other, other_hash));
    }

    void Refresh(const std::string& of, std::vector<Utxo> utxos, bool ok, bool complete) {
        ApplyRefresh({{of, std::move(utxos), ok, {}, /*guard_ok=*/true, complete}});
    }

    WalletFixture wallet{"ada", /*last_receive=*/0};
    WalletLock lock{wallet_mutex};
    const std::string address, other;
    Hash160 hash{}, other_hash{};
};

TEST_F(UtxoCache, AFailureNeverDamagesAGoodListAndAnAdditionRenewsIt) {
    EXPECT_EQ(Cached(address), "-");
    Refresh(address, {}, /*ok=*/false, /*complete=*/false);
    EXPECT_EQ(Cached(address), "?");
    EXPECT_FALSE(IsCacheFresh(address));

    Refresh(address, {{TestTxid(1), 0, 50}}, true, true);
    EXPECT_EQ(Cached(address), "1:0=50");
    wallet.clock.AdvanceMs(7'999);
    EXPECT_TRUE(IsCacheFresh(address));
    Refresh(address, {{TestTxid(2), 0, 60}}, /*ok=*/false, /*complete=*/false);
    EXPECT_EQ(Cached(address), "1:0=50");
    wallet.clock.AdvanceMs(1);
    EXPECT_FALSE(IsCacheFresh(address)) << "the failed fetch must not have made it younger";

    AddToCache("", {TestTxid(1), 0, 5});
    AddToCache(other, {TestTxid(1).substr(2), 0, 5});
    EXPECT_EQ(Cached(other), "-");
    AddToCache(address, {FlipTxidHex(TestTxid(1)), 0, 50});
    AddToCache(address, {TestTxid(2), 0, 6});
    AddToCache(address, {TestTxid(3), 0, 60});
    AddToCache(address, {TestTxid(4), 0, 50});
    EXPECT_EQ(Cached(address), "3:0=60 1:0=50 4:0=50 2:0=6");
    EXPECT_TRUE(IsCacheFresh(address));
}

TEST_F(UtxoCache, OnlyACompleteListTakesOutputsAway) {
    Refresh(address, {{TestTxid(1), 0, 50}, {TestTxid(2), 0, 40}}, true, true);
    Refresh(address, {{FlipTxidHex(TestTxid(2)), 0, 40}, {TestTxid(3), 0, 30}}, true, /*complete=*/false);
    EXPECT_EQ(Cached(address), "1:0=50 " + FlipTxidHex(TestTxid(2)) + ":0=40 3:0=30");

    MarkSpentInMemory(FlipTxidHex(TestTxid(1)), 0);
    Refresh(address, {{TestTxid(4), 0, 9}, {TestTxid(1), 0, 50}}, true, /*complete=*/false);
    EXPECT_EQ(Cached(address), FlipTxidHex(TestTxid(2)) + ":0=40 3:0=30 4:0=9") << "1 is spent";

    MarkSpentInMemory(TestTxid(3), 0);
    PruneCacheOfSpent();
    EXPECT_EQ(Cached(address), FlipTxidHex(TestTxid(2)) + ":0=40 4:0=9");
    Refresh(address, {{TestTxid(5), 1, 7}}, true, true);
    EXPECT_EQ(Cached(address), "5:1=7");
}

TEST_F(UtxoCache, APendingOutputStandsUntilACompleteListMissesIt) {
    pending_outputs.push_back({TestTxid(1), 0, 11, {}, {}, hash});
    pending_outputs.push_back({TestTxid(2), 0, 22, {}, {}, hash});
    pending_outputs.push_back({TestTxid(3), 0, 33, {}, {}, other_hash});
    MarkSpentInMemory(TestTxid(2), 0);

    Refresh(address, {{TestTxid(9), 0, 9}}, true, /*complete=*/false);
    EXPECT_EQ(Cached(address), "1:0=11 9:0=9") << "2 is spent, 3 pays another address";
    EXPECT_EQ(pending_outputs.size(), 3u);

    Refresh(address, {{FlipTxidHex(TestTxid(1)), 0, 11}}, true, true);
    EXPECT_EQ(Cached(address), FlipTxidHex(TestTxid(1)) + ":0=11") << "listed, so no second copy";
    EXPECT_EQ(pending_outputs.size(), 2u) << "the spent one went";

    Refresh(address, {}, true, true);
    ASSERT_EQ(pending_outputs.size(), 1u);
    EXPECT_EQ(pending_outputs[0].txid, TestTxid(3));
    Refresh(address, {}, true, true);
    EXPECT_EQ(Cached(address), "");

    PrunePending("no address", {});
    EXPECT_EQ(pending_outputs.size(), 1u);
}

TEST_F(UtxoCache, TheBalanceIsWhatTheCurrentAddressCanSpend) {
    EXPECT_EQ(SpendableBalance(), -1);
    pending_outputs.push_back({TestTxid(1), 0, 500, {}, {}, hash});
    EXPECT_EQ(SpendableBalance(), 500) << "a pending output is known, whatever the services say";

    Refresh(address, {{TestTxid(2), 0, 1'000}, {TestTxid(3), 0, 1}, {FlipTxidHex(TestTxid(1)), 0, 500}}, true,
            true);
    Refresh(other, {{TestTxid(4), 0, 7'000}}, true, true);
    pending_outputs.push_back({TestTxid(5), 0, 7'000, {}, {}, other_hash});
    EXPECT_EQ(SpendableBalance(), 1'501) << "each once, and of this address alone";

    StoreOrdinalGuard(address, {OutpointKey(TestTxid(2), 0)}, true);
    EXPECT_EQ(SpendableBalance(), 501);
    wallet.clock.AdvanceMs(20'000);
    EXPECT_EQ(SpendableBalance(), 500) << "without a fresh scan the single satoshi is held back, too";
    MarkSpentInMemory(TestTxid(1), 0);
    MarkSpentInMemory(TestTxid(2), 0);
    EXPECT_EQ(SpendableBalance(), 0);

    Refresh(address, {{TestTxid(7), 0, INT64_MAX}, {TestTxid(8), 0, INT64_MAX}}, true, true);
    EXPECT_EQ(SpendableBalance(), INT64_MAX);
}

class UtxoNetwork : public testing::Test {
  protected:
    UtxoNetwork() : address(wallet.ReceiveAddress(0)) {}

    void Reply(const std::string& path, const json& body) {
        services.Reply(Service::kChain, path, 200, body.dump());
    }
    void Refuse(const std::string& path) { services.Reply(Service::kChain, path, 500, "down"); }

    // FetchUtxos, told as the outputs, "incomplete " in front of them, or the error.
    std::string Fetch() {
        std::vector<Utxo> list{{TestTxid(60), 0, 1}};  // must not survive
        std::string error = "left over";
        bool complete = true;
        if (!FetchUtxos(address, list, error, &complete)) return "error: " + error;
        EXPECT_EQ(error, "");
        return (complete ? "" : "incomplete ") + Describe(list);
    }

    int64_t Asked(std::string_view path) const {
        return std::ranges::count_if(services.box.Requests(Service::kChain), [&](const std::string& request) {
            return request.find(path) != std::string::npos;
        });
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

    WalletFixture wallet;
    SandboxFixture services;
    const std::string address;
};

json Listed(uint32_t number, int64_t value) {
    return {{"tx_hash", TestTxid(number)}, {"tx_pos", 0}, {"value", value}};
}

TEST_F(UtxoNetwork, FetchFallsBackOnTheTwoOlderListings) {
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
        services.Reply(Service::kChain, "/unspent/all", row.all.empty() ? 500 : 200, row.all);
        services.Reply(Service::kChain, "/unconfirmed/unspent", row.unconfirmed.empty() ? 500 : 200,
                       row.unconfirmed);
        services.Reply(Service::kChain, "/unspent", row.confirmed.empty() ? 500 : 200, row.confirmed);
        EXPECT_EQ(Fetch(), row.told);
        EXPECT_EQ(Asked("/unspent"), 3);
    }
    services.box.ClearFaults();
    json flipped = Listed(1, 70);
    flipped["tx_hash"] = FlipTxidHex(TestTxid(1));
    Reply("/unspent/all", {Listed(1, 50), Listed(2, 60), flipped, Listed(2, 40)});
    EXPECT_EQ(Fetch(), FlipTxidHex(TestTxid(1)) + ":0=70 2:0=60") << "one of each outpoint";
}

TEST_F(UtxoNetwork, TheNewestSixteenUnconfirmedTransactionsAreReadForWhatTheySpend) {
    // Transaction 20+i spends output i; number 20 is the oldest of seventeen.
    json history = json::array(), listing = json::array();
    for (uint32_t i = 0; i < 17; ++i) {
        listing.push_back(Listed(i, 100 - i));
        history.push_back({{"tx_hash", TestTxid(20 + i)}});
        const std::string spent = i % 2 == 0 ? TestTxid(i) : FlipTxidHex(TestTxid(i));
        Reply("/tx/" + TestTxid(20 + i), {{"vin", {{{"txid", spent}, {"vout", 0}}, {{"coinbase", ""}}}}});
    }
    listing.push_back(Listed(18, 5));
    history.insert(history.begin() + 3, json::object({{"tx_hash", "short"}}));
    Reply("/unconfirmed/history", {{"result", history}});
    Reply("/unspent/all", listing);
    EXPECT_EQ(Fetch(), "0:0=100 18:0=5");
    EXPECT_EQ(Asked("/tx/"), 16);
}

TEST_F(UtxoNetwork, AReadThatFailsLeavesWhatTheOthersShowed) {
    Reply("/unspent/all", {Listed(1, 50), Listed(2, 40), Listed(3, 30), Listed(4, 20)});
    Reply("/unconfirmed/history",
          {{{"txid", TestTxid(21)}}, {{"tx_hash", TestTxid(22)}}, {{"tx_hash", TestTxid(23)}}});
    Reply("/tx/" + TestTxid(21), {{"vin", json::array({{{"txid", TestTxid(1)}}})}});
    Refuse("/tx/" + TestTxid(22));
    Reply("/tx/" + TestTxid(23),
          {{"vin", {{{"txid", TestTxid(3)}, {"vout", 1e300}}, {{"txid", TestTxid(4)}, {"vout", 1}}}}});
    EXPECT_EQ(Fetch(), "2:0=40 3:0=30 4:0=20") << "only 1 is spent: 3 and 4 at other indices";
}

TEST_F(UtxoNetwork, ATransactionIsVisibleThroughEitherRead) {
    const std::string path = "/tx/" + TestTxid(1);
    const auto visible = [&](std::size_t hex_bytes, const char* decoded) {
        services.box.ClearFaults();
        services.Reply(Service::kChain, path + "/hex", hex_bytes == 0 ? 404 : 200,
                       std::string(hex_bytes, '0'));
        services.Reply(Service::kChain, path, 200, decoded);
        return TxVisible(TestTxid(1));
    };
    EXPECT_TRUE(visible(21, "{}"));
    EXPECT_FALSE(visible(20, R"({"hash":"x"})")) << "too short, and the other names no id";
    EXPECT_TRUE(visible(0, R"({"txid":"x"})"));
    services.box.ClearRequests();
    EXPECT_FALSE(TxVisible(TestTxid(1).substr(1)));
    EXPECT_EQ(services.box.Requests(Service::kChain).size(), 0u);
}

TEST_F(UtxoNetwork, APlainScanPassesOverInscriptionsTokensAndSingleSatoshis) {
    const char* elements[] = {
        R"("origin":null,"data":null)",
        R"("origin":"any text")",
        R"("origin":{"outpoint":"x_0"})",
        R"("origin":{"outpoint":""})",
        R"("data":{"bsv20":7})",
        R"("data":{"insc":1})",
        R"("data":{"bsv21":{}})",
        R"("satoshis":1)",
        R"("satoshis":"many","value":44.9)",
        R"("satoshis":1e300)",
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
    EXPECT_EQ(Describe(list), "1:1=11 4:1=14 9:1=44 12:0=22");
    EXPECT_FALSE(ScanPlainOutputs("", list));
    for (const char* body : {"{}", "[]", "nonsense", R"([{"txid":7}])"}) {
        services.box.ClearFaults();
        services.Reply(Service::kOrdinals, "/txos/address/", 200, body);
        EXPECT_FALSE(ScanPlainOutputs(address, list)) << body;
        EXPECT_TRUE(list.empty()) << body;
    }
}

TEST_F(UtxoNetwork, APaymentFetchesOnlyWhatIsNotKnown) {
    WalletLock lock(wallet_mutex);
    std::string error;
    Refuse(address);
    Reply(wallet.IdentityAddress() + "/unspent/all", json::array({Listed(2, 40)}));
    EXPECT_TRUE(EnsureUtxoCache(lock, error)) << "a fetch that failed is a fetch";
    EXPECT_EQ(Cached(address), "?");
    EXPECT_EQ(Cached(wallet.IdentityAddress()), "2:0=40");
    EXPECT_EQ(Scans(), wallet.IdentityAddress()) << "once, and only where there are coins";
    EXPECT_FALSE(OrdinalsOutageRunning());

    services.box.ClearFaults();
    services.box.ClearRequests();
    Reply(address + "/unspent/all", json::array({Listed(1, 50)}));
    wallet.clock.AdvanceMs(3'600'000);
    EXPECT_TRUE(EnsureUtxoCache(lock, error));
    EXPECT_EQ(Cached(address), "1:0=50");
    EXPECT_EQ(Asked(wallet.IdentityAddress()), 0) << "valid, however old";
    EXPECT_EQ(Scans(), address);
    services.box.ClearRequests();
    EXPECT_TRUE(EnsureUtxoCache(lock, error));
    EXPECT_TRUE(services.box.Requests(Service::kChain).empty());
    EXPECT_TRUE(lock.owns_lock());
    EXPECT_EQ(Scans(), "");

    // A listing without a scan leaves its outputs uncovered; a service that fails is asked again after a
    // while.
    ApplyRefresh({{address, {{TestTxid(1), 0, 50}, {TestTxid(3), 0, 60}}, /*ok=*/true, {}}});
    services.Reply(Service::kOrdinals, "/txos/", 500, "");
    for (const int pause : {0, 19'999, 1}) {
        wallet.clock.AdvanceMs(pause);
        services.box.ClearRequests();
        EXPECT_TRUE(EnsureUtxoCache(lock, error));
        EXPECT_EQ(Scans(), pause == 19'999 ? "" : address) << pause;
        EXPECT_TRUE(services.box.Requests(Service::kChain).empty());
        EXPECT_TRUE(OrdinalsOutageRunning());
    }

    ClearWalletState();
    SetWalletId("");
    EXPECT_FALSE(EnsureUtxoCache(lock, error));
    EXPECT_EQ(error, "no wallet");
}

TEST_F(UtxoNetwork, ARescanAddsWhatTheOrdinalsServiceKnowsAndIsUnspent) {
    WalletLock lock(wallet_mutex);
    Hash160 hash;
    ASSERT_TRUE(DecodeAddress(address, hash));
    StoreUtxoList(address, {{TestTxid(1), 0, 50}}, true, false);
    pending_outputs.push_back({TestTxid(9), 0, 90, {}, {}, hash});
    MarkSpentInMemory(TestTxid(2), 0);
    const auto element = [](uint32_t number) { return json{{"txid", TestTxid(number)}, {"satoshis", 20}}; };
    services.Reply(Service::kOrdinals, "/txos/address/" + address, 200, json{element(2), element(3)}.dump());
    RescanPlainOutputs(lock);
    EXPECT_EQ(Cached(address), "9:0=90 1:0=50 3:0=20");
    EXPECT_TRUE(pending_outputs.empty()) << "the second opinion does not know it";
    EXPECT_EQ(Cached(wallet.IdentityAddress()), "-");
    EXPECT_TRUE(lock.owns_lock());
}

TEST_F(UtxoNetwork, ARefreshFetchesEveryRecordAndFewAtOnce) {
    services.box.Fund(address, 9'000);
    Fault slow;  // so that as many requests meet as were begun
    slow.kind = FaultKind::kDelay;
    slow.delay_ms = 300;
    slow.path_contains = "/unspent/all";
    services.box.AddFault(Service::kChain, slow);
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

}  // namespace
}  // namespace brickfall
