#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "base/files.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/chain/ordinals_api.h"
#include "wallet/coins/ordinal_guard.h"
#include "wallet/coins/own_transactions.h"
#include "wallet/coins/reservations.h"
#include "wallet/coins/spent_set.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/payment/coin_selection.h"
#include "wallet/payment/output_recovery.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/hashes.h"
#include "wallet/protocol/outpoint.h"
#include "wallet/protocol/transaction.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/app_binds.h"
#include "wallet/store/wallet_paths.h"

namespace brickfall {
namespace {

using nlohmann::json;
using sandbox::Fault;
using sandbox::Service;

std::string Replace(std::string text, const std::string& mark, const std::string& by) {
    for (std::size_t at = 0; (at = text.find(mark, at)) != std::string::npos; at += by.size()) {
        text.replace(at, mark.size(), by);
    }
    return text;
}

class SpendGuard : public testing::Test {
  protected:
    SpendGuard() {
        EXPECT_TRUE(wallet.loaded);
        MakeFolders(wallet.StorePath("/emporium"));
        MakeFolders(wallet.StorePath("/gallery"));
    }

    void Write(const std::string& tail, const std::string& content) {
        EXPECT_TRUE(WriteFile(wallet.StorePath(tail), content));
    }

    static void Spend(const std::string& txid, uint32_t vout) {
        SpendInput input;
        input.txid = txid;
        input.vout = vout;
        MarkSpent(std::span(&input, 1));
    }

    static bool Collect(std::vector<SpendInput>& inputs, int64_t& total) {
        std::string error;
        const bool found = CollectSpendable(inputs, total, error);
        EXPECT_EQ(error, "");
        return found;
    }

    std::string SpentFile() { return wallet.StorePath("/ord_snap/") + kTestWalletId + "_spent.json"; }

    WalletFixture wallet{"ada", /*last_receive=*/2};
    WalletLock lock{wallet_mutex};
};

TEST(OriginOf, IsTextOnlyWhereAnOriginIsNamed) {
    EXPECT_EQ(OriginOf(json::parse(R"({"origin":"whatever it says"})")), "whatever it says");
    EXPECT_EQ(OriginOf(json::parse(R"({"origin":{"outpoint":"a_0"}})")), "a_0");
    for (const char* object :
         {"{}", R"({"origin":null})", R"({"origin":""})", R"({"origin":{"outpoint":""}})", R"({"origin":{}})",
          R"({"origin":{"outpoint":7}})", R"({"origin":["a_0"]})", R"({"origin":1})", R"(["origin"])"}) {
        EXPECT_EQ(OriginOf(json::parse(object)), "") << object;
    }
}

TEST_F(SpendGuard, ASingleSatoshiIsHeldBackWhileNoFreshScanSpeaksForIt) {
    const Utxo single{TestTxid(1), 0, 1}, two{TestTxid(2), 0, 2}, picture{TestTxid(3), 0, 10'000};
    const std::string a = "address a", b = "address b";
    EXPECT_TRUE(IsOrdinalForAddress(a, single));
    EXPECT_FALSE(IsOrdinalForAddress(a, two));
    EXPECT_FALSE(IsOrdinalAnywhere(single));

    StoreOrdinalGuard(a, {OutpointKey(picture.txid, 0)}, /*ok=*/true);
    EXPECT_FALSE(IsOrdinalForAddress(a, single));
    EXPECT_TRUE(IsOrdinalForAddress(a, picture));
    EXPECT_TRUE(IsOrdinalAnywhere(picture));
    EXPECT_TRUE(IsOrdinalForAddress(b, single)) << "the scan was of another address";

    wallet.clock.AdvanceMs(19'999);
    EXPECT_TRUE(HasFreshGuard(a));
    EXPECT_FALSE(IsOrdinalForAddress(a, single));
    wallet.clock.AdvanceMs(1);
    EXPECT_FALSE(HasFreshGuard(a));
    EXPECT_TRUE(IsOrdinalForAddress(a, single));
    EXPECT_TRUE(IsOrdinalForAddress(a, picture)) << "once named, at any age";
    EXPECT_TRUE(IsOrdinalForAddress(b, {FlipTxidHex(picture.txid), 0, 10'000})) << "wherever it is listed";
    StoreOrdinalGuard(a, {}, /*ok=*/true);
    EXPECT_TRUE(IsOrdinalForAddress(a, picture)) << "though a later scan misses it";
    EXPECT_TRUE(IsOrdinalAnywhere(picture));
    ClearGuardState();
    EXPECT_FALSE(IsOrdinalForAddress(a, picture) || IsOrdinalAnywhere(picture)) << "of another wallet";
}

TEST_F(SpendGuard, AnOutageLastsTwentySecondsFromTheLastFailedScan) {
    const Utxo single{TestTxid(1), 0, 1}, picture{TestTxid(3), 0, 10'000}, other{TestTxid(4), 0, 10'000};
    StoreOrdinalGuard("a", {OutpointKey(picture.txid, 0)}, true);
    EXPECT_FALSE(OrdinalsOutageRunning());
    StoreOrdinalGuard("b", {}, /*ok=*/false);
    EXPECT_TRUE(OrdinalsOutageRunning());
    EXPECT_TRUE(IsOrdinalForAddress("a", single)) << "of whatever address";
    EXPECT_TRUE(IsOrdinalForAddress("a", picture) && IsOrdinalAnywhere(picture)) << "named before";
    EXPECT_FALSE(IsOrdinalForAddress("a", other) || IsOrdinalAnywhere(other)) << "the value alone decides";
    EXPECT_TRUE(IsOrdinalAnywhere(single));

    wallet.clock.AdvanceMs(15'000);
    StoreOrdinalGuard("b", {OutpointKey(other.txid, 0)}, false);
    StoreOrdinalGuard("a", {}, true);
    wallet.clock.AdvanceMs(19'999);
    EXPECT_TRUE(OrdinalsOutageRunning()) << "a good scan does not end it";
    wallet.clock.AdvanceMs(1);
    EXPECT_FALSE(OrdinalsOutageRunning());
    EXPECT_TRUE(IsOrdinalAnywhere(other)) << "what the failed scan had read before it failed";
    EXPECT_FALSE(IsOrdinalAnywhere(single));
}

TEST_F(SpendGuard, ReservesAreReadFromTheFilesAsTheyStand) {
    const std::string tail = std::string("/reserves_") + kTestWalletId + ".json";
    const std::string upper_id = "ABCDEF" + std::string(58, '0'), id = "abcdef" + std::string(58, '0');
    // "@" stands for the outpoint in upper case and with a colon.
    const auto check = [&](bool emporium, const std::string& document) {
        Write((emporium ? "/emporium" : "/gallery") + tail, Replace(document, "@", upper_id + ":3"));
        auto* const reserved = emporium ? IsEmporiumReserved : IsGalleryReserved;
        Reserves reserves;
        std::string error;
        EXPECT_TRUE(LoadReserves(reserves, error)) << error;
        EXPECT_FALSE(reserved(reserves, id, 4)) << document;
        return reserved(reserves, id, 3);
    };
    const auto list = [](const char* rows) { return R"({"reserves":[)" + std::string(rows) + "]}"; };
    for (const char* rows : {R"({"utxo":"@"})", R"({"utxo":"@","exp":1})", R"({"utxo":"@"},{"utxo":7})",
                             R"(7,{},{"utxo":""},"x",{"utxo":"@"})",
                             R"({"utxo":null,"exp":null},{"utxo":"@","origin":null,"listing":null})"}) {
        EXPECT_TRUE(check(true, list(rows))) << rows;
    }
    // Nothing counts from the first malformed row on.
    for (const char* rows : {R"({"utxo":"x_1"})", R"({"utxo":"x","listing":1},{"utxo":"@"})",
                             R"({"utxo":"@","exp":"never"})", R"({"utxo":"@","origin":7})"}) {
        EXPECT_FALSE(check(true, list(rows))) << rows;
    }
    for (const char* broken :
         {R"({"reserves":[{"utxo":"@"})", R"([{"utxo":"@"}])", R"({"reserves":{"utxo":"@"}})"}) {
        EXPECT_FALSE(check(true, broken)) << broken;
    }
    // The clock stands at 1790000000; an end of 0, or none, is no end.
    for (const char* rows : {R"({"pic_utxo":"@","exp":0})", R"({"pic_utxo":"@"})",
                             R"({"pic_utxo":"@","exp":1790000000})", R"({"pic_utxo":"@","exp":1e300})",
                             R"({"pic_utxo":"@","exp":-1e300})", R"({"pic_utxo":"x","cert_utxo":"@"})",
                             R"({"pic_utxo":"@","exp":5},{"pic_utxo":"@","exp":2000000000})",
                             R"({"pic_utxo":"x","cert_utxo":null,"exp":null},{"pic_utxo":"@","spot":null})",
                             R"({"pic_utxo":"@","pic":"p","cert":"c","price_sats":-1,"spot":1e300})"}) {
        EXPECT_TRUE(check(false, list(rows))) << rows;
    }
    for (const char* rows : {R"({"pic_utxo":"@","exp":1789999999})", R"({"pic_utxo":"","cert_utxo":"@"})",
                             R"({"spot":true},{"pic_utxo":"@"})"}) {
        EXPECT_FALSE(check(false, list(rows))) << rows;
    }
}

TEST_F(SpendGuard, FilesAreNamedByTheWalletId) {
    const std::string locks = R"({"utxos":["ABC_0","",7,null,"d"]})";
    const std::string rows = R"({"reserves":[{"utxo":")" + TestTxid(1) + R"(_0"}]})";
    const std::string long_name(90, 'n'), identity = wallet.IdentityAddress();
    const struct {
        std::string wallet_id, cache_id, offer_name, reserve_name;
    } names[] = {
        {"w-1_A", "w_1_A", "w-1_A", "w-1_A"},
        {"../a.b c", "___a_b_c", "abc", "___a_b_c"},
        {"\xC3\xA9", "__", "none", "__"},
        {"", identity, "none", "none"},
        {long_name, long_name.substr(10), long_name, long_name.substr(26)},
    };
    Reserves reserves;
    std::string error;
    for (const auto& name : names) {
        SCOPED_TRACE(name.wallet_id);
        const std::string offers = "/gallery/offer_locks_" + name.offer_name + ".json";
        const std::string shop = "/emporium/reserves_" + name.reserve_name + ".json";
        SetWalletId(name.wallet_id);
        EXPECT_EQ(WalletCacheId(), name.cache_id);
        Write(offers, locks);
        Write(shop, rows);
        EXPECT_TRUE(LoadReserves(reserves, error));
        EXPECT_EQ(reserves.offer_locks, (std::unordered_set<std::string>{"abc_0", "d"}));
        EXPECT_TRUE(IsEmporiumReserved(reserves, TestTxid(1), 0));
        for (const std::string& file : {offers, shop}) {
            RemoveFile(wallet.StorePath(file));
            EXPECT_TRUE(LoadReserves(reserves, error));
            MakeFolders(wallet.StorePath(file));  // in the place of the file: not missing, and not to be read
            EXPECT_FALSE(LoadReserves(reserves, error));
            EXPECT_EQ(error, "cannot read " + file.substr(1) + "; nothing was spent.");
            std::filesystem::remove(wallet.StorePath(file));
        }
        EXPECT_TRUE(LoadReserves(reserves, error));
        EXPECT_TRUE(reserves.offer_locks.empty() && reserves.emporium.empty());
    }
    SetWalletId("");
    ClearWalletState();
    EXPECT_EQ(WalletCacheId(), "wallet");
}

TEST_F(SpendGuard, WhatWasSpentStaysSpentAcrossARestart) {
    Spend(TestTxid(1), 4);
    EXPECT_TRUE(IsSpent(FlipTxidHex(TestTxid(1)), 4));
    EXPECT_FALSE(IsSpent(TestTxid(1), 5));
    const json file = json::parse(ReadFile(SpentFile()).value_or("null"));
    EXPECT_EQ(file.at("outpoints").get<std::set<std::string>>(),
              (std::set{OutpointKey(TestTxid(1), 4), OutpointKey(FlipTxidHex(TestTxid(1)), 4)}));
    EXPECT_EQ(file.size(), 1u);
    wallet.Restart();
    EXPECT_TRUE(IsSpent(TestTxid(1), 4));

    // One byte order is enough, whoever wrote it.
    const std::string one_order =
        R"({"outpoints":[7,"",")" + OutpointKey(FlipTxidHex(TestTxid(2)), 0) + R"("]})";
    ASSERT_TRUE(WriteFile(SpentFile(), one_order));
    LoadSpentSet();
    EXPECT_TRUE(IsSpent(TestTxid(2), 0));
    EXPECT_EQ(spent_set.size(), 3u) << "added to what was there";
    for (const char* broken : {"", "[]", "{", R"({"outpoints":{}})", R"({"outpoints":"x"})"}) {
        ASSERT_TRUE(WriteFile(SpentFile(), broken));
        LoadSpentSet();
        EXPECT_EQ(spent_set.size(), 3u) << broken;
    }
}

TEST_F(SpendGuard, ASpentFileThatCannotBeReadStopsPaymentsAndIsNeverReplaced) {
    StoreUtxoList(wallet.ReceiveAddress(0), {{TestTxid(1), 0, 500}, {TestTxid(2), 0, 400}}, true, false);
    Spend(TestTxid(1), 0);
    const std::string file = ReadFile(SpentFile()).value_or("");
    const auto stand_in_the_way = [&] {
        RemoveFile(SpentFile());
        MakeFolders(SpentFile());
    };
    stand_in_the_way();
    ClearUtxoState();
    EXPECT_FALSE(LoadSpentSet());
    StoreUtxoList(wallet.ReceiveAddress(0), {{TestTxid(1), 0, 500}, {TestTxid(2), 0, 400}}, true, false);
    std::vector<SpendInput> inputs;
    int64_t total = 0;
    std::string error;
    EXPECT_FALSE(CollectSpendable(inputs, total, error));
    EXPECT_EQ(error,
              "cannot read ord_snap/" + std::string(kTestWalletId) + "_spent.json; nothing was spent.");
    Spend(TestTxid(3), 0);

    // It can be read again: what it holds counts, and what was marked meanwhile joins it.
    std::filesystem::remove(SpentFile());
    ASSERT_TRUE(WriteFile(SpentFile(), file));
    ASSERT_TRUE(Collect(inputs, total));
    EXPECT_EQ(total, 400);
    Spend(TestTxid(4), 0);
    // As do the entries of another installation of the same wallet.
    ClearUtxoState();
    Spend(TestTxid(5), 0);
    for (const uint32_t number : {1u, 3u, 4u, 5u}) EXPECT_TRUE(IsSpent(TestTxid(number), 0)) << number;
}

TEST_F(SpendGuard, ASpentSetOfANamelessWalletStaysInMemory) {
    for (const char* id : {"", "wallet"}) {
        ClearWalletState();
        SetWalletId(id);
        Spend(TestTxid(1), 0);
        EXPECT_TRUE(IsSpent(TestTxid(1), 0));
        EXPECT_FALSE(FileExists(wallet.StorePath("/ord_snap/wallet_spent.json"))) << id;
    }
}

// The inputs in order, as the low index of the test id and the value.
std::string Describe(const std::vector<SpendInput>& inputs) {
    std::string text;
    for (const SpendInput& input : inputs) {
        for (uint32_t number = 0; number < 64; ++number) {
            if (SameOutpointText(input.txid, TestTxid(number))) text += std::to_string(number);
        }
        text += "=" + std::to_string(input.value) + " ";
    }
    return text;
}

TEST_F(SpendGuard, CollectionTakesTheOldestAddressesFirstWithTheirOwnKeys) {
    const std::string receive0 = wallet.ReceiveAddress(0), receive2 = wallet.ReceiveAddress(2);
    const std::string identity = wallet.IdentityAddress();
    StoreUtxoList(identity, {{TestTxid(1), 0, 900}}, true, false);
    StoreUtxoList(receive2, {{TestTxid(2), 0, 800}, {TestTxid(3), 0, 700}}, true, false);
    StoreUtxoList(receive0, {{TestTxid(4), 0, 10}}, true, false);
    StoreUtxoList(wallet.ReceiveAddress(1), {{TestTxid(5), 0, 60}}, /*ok=*/false, false);
    StoreUtxoList(wallet.ReceiveAddress(3), {{TestTxid(6), 0, 60}}, true, false);  // above recv[1]
    Hash160 hash;
    ASSERT_TRUE(DecodeAddress(receive2, hash));
    pending_outputs.push_back({FlipTxidHex(TestTxid(3)), 0, 700, {}, {}, hash});
    pending_outputs.push_back({TestTxid(7), 0, 50, {}, {}, hash});
    pending_outputs.push_back({TestTxid(8), 0, 70, {}, {}, hash});

    std::vector<SpendInput> inputs;
    int64_t total = -1;
    EXPECT_TRUE(Collect(inputs, total));
    EXPECT_EQ(Describe(inputs), "4=10 2=800 3=700 1=900 8=70 7=50 ");
    EXPECT_EQ(total, 2'530);
    EXPECT_TRUE(pending_outputs.empty()) << "taken at that moment, once";
    const std::string owners[] = {receive0, receive2, receive2, identity, receive2, receive2};
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        std::string pub;
        EXPECT_TRUE(PublicKeyFromPrivate(inputs[i].priv, pub));
        EXPECT_EQ(pub, inputs[i].pub);
        EXPECT_EQ(AddressFromPublicKey(pub), owners[i]) << "input " << i;
        EXPECT_EQ(Base58CheckEncode(inputs[i].hash), owners[i]);
        EXPECT_TRUE(inputs[i].script_sig.empty());
    }
}

TEST_F(SpendGuard, EachTestOfACandidateHoldsItBack) {
    const std::string receive = wallet.ReceiveAddress(0);
    std::vector<Utxo> coins{{"short", 0, 90}, {TestTxid(7), 0, 1}};
    for (uint32_t number = 1; number <= 6; ++number) coins.push_back({TestTxid(number), 0, 100});
    coins.push_back({FlipTxidHex(TestTxid(1)), 0, 100});
    StoreUtxoList(receive, coins, true, false);
    StoreOrdinalGuard(receive, {OutpointKey(TestTxid(3), 0)}, true);
    MarkSpentInMemory(FlipTxidHex(TestTxid(2)), 0);
    const auto write = [&](const char* file, const std::string& content) {
        Write(std::string(file) + kTestWalletId + ".json", content);
    };
    write("/emporium/reserves_", R"({"reserves":[{"utxo":")" + TestTxid(4) + R"(:0"}]})");
    write("/gallery/reserves_", R"({"reserves":[{"pic_utxo":")" + TestTxid(5) + R"(_0"}]})");
    write("/gallery/offer_locks_", R"({"utxos":["AB)" + TestTxid(6).substr(2) + R"(_0"]})");
    std::vector<SpendInput> inputs;
    int64_t total = 0;
    EXPECT_TRUE(Collect(inputs, total));
    EXPECT_EQ(Describe(inputs), "1=100 7=1 ");
    EXPECT_EQ(total, 101);

    // Reservations made a moment ago count at once; with nothing left the collection is empty.
    write("/gallery/offer_locks_", R"({"utxos":[")" + TestTxid(1) + R"(_0",")" + FlipTxidHex(TestTxid(1)) +
                                       R"(_0",")" + TestTxid(6) + R"(_0",")" + TestTxid(7) + R"(_0"]})");
    EXPECT_FALSE(Collect(inputs, total));
    EXPECT_TRUE(inputs.empty());
    EXPECT_EQ(total, 0);
}

class GuardNetwork : public SpendGuard {
  protected:
    SandboxFixture services;
};

TEST_F(GuardNetwork, AScanCountsWhatItsListingNames) {
    // "A" to "C" stand for ids of these digits.
    const struct {
        const char *why, *outputs, *tokens;  // no tokens: refused
        bool ok;
        const char* keys;
    } rows[] = {
        {"plain outputs", R"([{"txid":"A","origin":null},{"txid":"B"}])", "[]", true, ""},
        {"inscriptions", R"([{"txid":"A","origin":"x"},{"txid":"B","origin":{"outpoint":"y"}},7])", "[]",
         true, "AB"},
        {"an id that is none", R"([{"txid":"zz","origin":"x"},{"origin":"x"}])", "[]", true, ""},
        {"index out of range", R"([{"txid":"A","vout":-1,"origin":"x"},{"txid":"B","origin":"x"}])", "[]",
         true, "B"},
        {"a wrong type", R"([{"txid":"A","origin":"x"},{"txid":7,"origin":"x"}])", "[]", false, "A"},
        {"the wrong type without an origin", R"([{"txid":7}])", "[]", true, ""},
        {"an index as text", R"([{"txid":"A","vout":"0","origin":"x"}])", "[]", false, ""},
        {"no list", "{}", "[]", false, ""},
        {"no JSON", "[", "[]", false, ""},
        {"tokens", "[]",
         R"([{"txid":"A","spend":""},{"txid":"B","spend":null,"vout":null},{"txid":"C","spend":"x"},7])",
         true, "AB"},
        {"up to a wrong type", "[]", R"([{"txid":"A"},{"txid":"B","vout":true},{"txid":"C"}])", true, "A"},
        {"tokens refused", R"([{"txid":"A","origin":"x"}])", "", true, "A"},
        {"tokens no list", R"([{"txid":"A","origin":"x"}])", R"({"txid":"B"})", true, "A"},
    };
    const auto with_ids = [](std::string text) {
        for (const char* id : {"A", "B", "C"}) {
            text = Replace(text, "\"" + std::string(id) + "\"", "\"" + std::string(64, *id) + "\"");
        }
        return text;
    };
    for (const auto& row : rows) {
        services.box.ClearFaults();
        services.Reply(Service::kOrdinals, "/txos/address/", 200, with_ids(row.outputs));
        services.Reply(Service::kOrdinals, "/bsv20/", row.tokens[0] == 0 ? 500 : 200, with_ids(row.tokens));
        std::set<std::string> keys{"left over"}, expected;
        for (const char id : std::string(row.keys)) expected.insert(OutpointKey(std::string(64, id), 0));
        EXPECT_EQ(ScanOrdinals(wallet.ReceiveAddress(0), keys), row.ok) << row.why;
        EXPECT_EQ(keys, expected) << row.why;
    }
    services.box.ClearRequests();
    std::set<std::string> keys;
    EXPECT_FALSE(ScanOrdinals("", keys));
    EXPECT_TRUE(services.box.Requests(Service::kOrdinals).empty());
}

TEST_F(GuardNetwork, TheWalletsOutputsOfATransactionAreReadBack) {
    const std::string mine = wallet.ReceiveAddress(1), identity = wallet.IdentityAddress();
    const std::string foreign = wallet.ReceiveAddress(3), txid = TestTxid(40);
    MarkSpentInMemory(txid, 5);
    // "@" stands for one of the wallet's addresses; the index is where the output stands unless `n` says
    // otherwise.
    std::string body = R"({"vout":[
        {"value":0.00005,"scriptPubKey":{"addresses":["@"]}},
        {"value":5000,"scriptPubKey":{"address":"@"}},
        {"value":7,"satoshis":1234,"n":12,"scriptPubKey":{"addresses":["FOREIGN","IDENTITY"],"address":"@"}},
        {"value":0.000077,"scriptPubKey":{"addresses":["FOREIGN",7]}},
        "no object",
        {"value":0.00005,"scriptPubKey":{"address":"@"}},
        {"value":0.0000000049,"scriptPubKey":{"address":"@"}},
        {"scriptPubKey":{"address":"@"}},
        {"value":1e300,"scriptPubKey":{"address":"@"}},
        {"satoshis":-5,"scriptPubKey":{"address":"@"}},
        {"satoshis":5,"n":4294967296,"scriptPubKey":{"address":"@"}},
        {"value":0.00000003,"n":1.0,"scriptPubKey":{"address":"@"}},
        {"value":0.00000029,"n":13,"scriptPubKey":{"address":"@"}},
        {"value":0.00000029,"n":1,"scriptPubKey":{"address":"@"}}]})";
    body = Replace(Replace(Replace(body, "@", mine), "FOREIGN", foreign), "IDENTITY", identity);
    services.Reply(Service::kChain, "/tx/" + txid + "/decoded", 200, body);
    services.Reply(Service::kChain, "/tx/" + txid, 404, "");
    EXPECT_FALSE(RecoverOutputsFromTx(txid.substr(1)));
    EXPECT_TRUE(RecoverOutputsFromTx(txid));
    std::string found;
    for (const PendingOutput& output : pending_outputs) {
        EXPECT_EQ(output.txid, txid);
        EXPECT_EQ(AddressFromPublicKey(output.pub), Base58CheckEncode(output.hash));
        const bool of_identity = Base58CheckEncode(output.hash) == identity;
        found +=
            std::to_string(output.vout) + "=" + std::to_string(output.value) + (of_identity ? "i " : " ");
    }
    EXPECT_EQ(found, "0=5000 1=5000 12=1234i 11=3 13=29 ");
    EXPECT_FALSE(RecoverOutputsFromTx(txid)) << "nothing new";

    for (const char* broken : {"[]", "{}", R"({"vout":{}})", "{"}) {
        services.box.ClearFaults();
        services.Reply(Service::kChain, "/tx/", 200, broken);
        EXPECT_FALSE(RecoverOutputsFromTx(TestTxid(41))) << broken;
    }
}

TEST_F(GuardNetwork, AnEmptyCollectionLooksAtTheLastTransactions) {
    last_recorded_txid = TestTxid(41);
    last_broadcast_txid = TestTxid(42);
    const std::string body =
        R"({"vout":[{"value":0.0005,"scriptPubKey":{"address":")" + wallet.ReceiveAddress(0) + R"("}}]})";
    services.Reply(Service::kChain, "/tx/" + TestTxid(41), 404, "");
    services.Reply(Service::kChain, "/tx/" + TestTxid(42), 200, body);
    std::vector<SpendInput> inputs;
    int64_t total = 0;
    EXPECT_TRUE(Collect(inputs, total));
    EXPECT_EQ(Describe(inputs), "42=50000 ");
    EXPECT_EQ(total, 50'000);
}

}  // namespace
}  // namespace brickfall
