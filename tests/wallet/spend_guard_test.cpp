#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "base/files.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/coins/ordinal_guard.h"
#include "wallet/coins/reservations.h"
#include "wallet/coins/spent_set.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/payment/coin_selection.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/outpoint.h"
#include "wallet/protocol/transaction.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/app_binds.h"
#include "wallet/store/wallet_paths.h"

namespace brickfall {
namespace {

struct SpendGuard : testing::Test {
    static void Spend(const std::string& txid, uint32_t vout) {
        SpendInput input;
        input.txid = txid;
        input.vout = vout;
        MarkSpent(std::span(&input, 1));
    }

    // What may be spent, or why not.
    std::string Collect() {
        int64_t total = -1, sum = 0;
        std::string error = "left over";
        const bool found = CollectSpendable(inputs, total, error);
        EXPECT_EQ(found, !inputs.empty());
        for (const SpendInput& input : inputs) sum += input.value;
        EXPECT_EQ(total, sum);
        return error + CoinText(inputs);
    }

    WalletFixture wallet{"ada", /*last_receive=*/2};
    const WalletLock lock{wallet_mutex};
    const std::string file_tail = kTestWalletId + std::string(".json");
    const std::string spent_name = std::string("ord_snap/") + kTestWalletId + "_spent.json";
    const std::string spent_file = wallet.data.InStore(spent_name);
    std::vector<SpendInput> inputs;
};

TEST_F(SpendGuard, ASingleSatoshiIsHeldBackWhileNoFreshScanSpeaksForItAndWhatWasNamedForGood) {
    const Utxo single{TestTxid(1), 0, 1}, two{TestTxid(2), 0, 2}, picture{TestTxid(3), 0, 10'000};
    const std::string a = "address a", b = "address b";
    EXPECT_TRUE(IsOrdinalForAddress(a, single));
    EXPECT_FALSE(IsOrdinalForAddress(a, two) || IsOrdinalAnywhere(single));

    StoreOrdinalGuard(a, {OutpointKey(picture.txid, 0)}, /*ok=*/true);
    EXPECT_TRUE(IsOrdinalForAddress(b, single)) << "the scan was of another address";
    wallet.clock.AdvanceMs(19'999);
    EXPECT_TRUE(HasFreshGuard(a) && IsOrdinalForAddress(a, picture));
    EXPECT_FALSE(IsOrdinalForAddress(a, single));
    wallet.clock.AdvanceMs(1);
    EXPECT_TRUE(IsOrdinalForAddress(a, single) && !HasFreshGuard(a));
    EXPECT_TRUE(IsOrdinalForAddress(b, {FlipTxidHex(picture.txid), 0, 10'000})) << "wherever it is listed";
    StoreOrdinalGuard(a, {}, /*ok=*/true);
    EXPECT_TRUE(IsOrdinalForAddress(a, picture) && IsOrdinalAnywhere(picture)) << "a later scan misses it";
    ClearGuardState();
    EXPECT_FALSE(IsOrdinalForAddress(a, picture) || IsOrdinalAnywhere(picture)) << "of another wallet";
}

TEST_F(SpendGuard, AnOutageLastsTwentySecondsFromTheLastFailedScan) {
    const Utxo single{TestTxid(1), 0, 1}, other{TestTxid(4), 0, 10'000};
    StoreOrdinalGuard("a", {}, true);
    EXPECT_FALSE(OrdinalsOutageRunning());
    StoreOrdinalGuard("b", {}, /*ok=*/false);
    EXPECT_TRUE(IsOrdinalForAddress("a", single) && IsOrdinalAnywhere(single)) << "of whatever address";
    EXPECT_FALSE(IsOrdinalForAddress("a", other) || IsOrdinalAnywhere(other)) << "the value alone decides";
    wallet.clock.AdvanceMs(15'000);
    StoreOrdinalGuard("b", {OutpointKey(other.txid, 0)}, false);
    StoreOrdinalGuard("a", {}, true);
    wallet.clock.AdvanceMs(19'999);
    EXPECT_TRUE(OrdinalsOutageRunning()) << "a good scan does not end it";
    wallet.clock.AdvanceMs(1);
    EXPECT_FALSE(OrdinalsOutageRunning() || IsOrdinalAnywhere(single));
    EXPECT_TRUE(IsOrdinalAnywhere(other)) << "what the failed scan had read before it failed";
}

TEST_F(SpendGuard, ReservesAreReadFromTheFilesAsTheyStand) {
    const std::string id = "abcdef" + std::string(58, '0'), named = "ABCDEF" + std::string(58, '0') + ":3";
    // "@" stands for the outpoint in upper case and with a colon. No row of one shop means anything to the
    // other.
    const auto reserved = [&](std::string document) {
        for (std::size_t at; (at = document.find('@')) != document.npos;) document.replace(at, 1, named);
        for (const char* shop : {"emporium", "gallery"}) {
            wallet.data.Put(shop + ("/reserves_" + file_tail), document);
        }
        Reserves reserves;
        std::string error;
        EXPECT_TRUE(LoadReserves(reserves, error)) << error;
        EXPECT_FALSE(IsReserved(reserves, id, 4)) << document;
        return IsReserved(reserves, id, 3);
    };
    // The clock stands at 1790000000; an end of 0, or none, is no end. Nothing counts from the first
    // malformed row on.
    const std::pair<const char*, bool> files[] = {
        {R"({"utxo":"@","exp":1})", true},
        {R"(7,{},{"utxo":""},"x",{"utxo":"@"},{"utxo":7})", true},
        {R"({"utxo":null,"exp":null},{"utxo":"@","origin":null,"listing":null})", true},
        {R"({"pic_utxo":"@","exp":0})", true},
        {R"({"pic_utxo":"@","exp":1790000000})", true},
        {R"({"pic_utxo":"@","exp":1e300})", true},
        {R"({"pic_utxo":"x","cert_utxo":"@"})", true},
        {R"({"pic_utxo":"@","exp":5},{"pic_utxo":"@","exp":2000000000})", true},
        {R"({"pic_utxo":"x","cert_utxo":null,"exp":null},{"pic_utxo":"@","spot":null})", true},
        {R"({"pic_utxo":"@","pic":"p","cert":"c","price_sats":-1,"spot":1e300})", true},
        {R"({"utxo":"x","listing":1},{"utxo":"@"})", false},
        {R"({"utxo":"@","exp":"never"})", false},
        {R"({"utxo":"@","origin":7})", false},
        {R"({"pic_utxo":"@","cert":7})", false},
        {R"({"pic_utxo":"x","pic":7},{"pic_utxo":"@"})", false},
        {R"({"pic_utxo":"@","exp":1789999999})", false},
        {R"({"pic_utxo":"","cert_utxo":"@"})", false},
        {R"({"spot":true},{"pic_utxo":"@"})", false},
    };
    for (const auto& [rows, held] : files)
        EXPECT_EQ(reserved(R"({"reserves":[)" + std::string(rows) + "]}"), held) << rows;
    for (const char* broken : {R"([{"utxo":"@"}])", R"({"reserves":{"utxo":"@"}})"}) {
        EXPECT_FALSE(reserved(broken)) << broken;
    }
}

TEST_F(SpendGuard, FilesAreNamedByTheWalletId) {
    const std::string long_name(90, 'n'), identity = wallet.IdentityAddress();
    const struct {
        std::string wallet_id, cache_id, offer_name, reserve_name;
    } names[] = {
        {"../a.b-c", "___a_b_c", "ab-c", "___a_b-c"},
        {"\xC3\xA9", "__", "none", "__"},
        {"", identity, "none", "none"},
        {long_name, long_name.substr(10), long_name, long_name.substr(26)},
    };
    Reserves reserves;
    std::string error;
    EXPECT_TRUE(LoadReserves(reserves, error) && FileExists(wallet.data.InStore("emporium")) &&
                FileExists(wallet.data.InStore("gallery")))
        << "another app may write there";
    for (const auto& name : names) {
        SCOPED_TRACE(name.wallet_id);
        const std::string offers = "gallery/offer_locks_" + name.offer_name + ".json";
        const std::string shop = "emporium/reserves_" + name.reserve_name + ".json";
        SetWalletId(name.wallet_id);
        EXPECT_EQ(WalletCacheId(), name.cache_id);
        wallet.data.Put(offers, R"({"utxos":["ABC_0","",7,null,"d"]})");
        wallet.data.Put(shop, R"({"reserves":[{"utxo":")" + TestTxid(1) + R"(_0"}]})");
        EXPECT_TRUE(LoadReserves(reserves, error));
        EXPECT_EQ(reserves.offer_locks, (std::unordered_set<std::string>{"abc_0", "d"}));
        EXPECT_TRUE(IsEmporiumReserved(reserves, TestTxid(1), 0));
        RemoveFile(wallet.data.InStore(offers));
        RemoveFile(wallet.data.InStore(shop));
        EXPECT_TRUE(LoadReserves(reserves, error));
        EXPECT_TRUE(reserves.offer_locks.empty() && reserves.emporium.empty());
    }
    ClearWalletState();
    SetWalletId("");
    EXPECT_EQ(WalletCacheId(), "wallet");
    Spend(TestTxid(1), 0);
    EXPECT_TRUE(IsSpent(TestTxid(1), 0));
    EXPECT_FALSE(FileExists(wallet.data.InStore("ord_snap/wallet_spent.json"))) << "of nobody in particular";
}

TEST_F(SpendGuard, WhatWasSpentStaysSpentAcrossARestart) {
    Spend(TestTxid(1), 4);
    EXPECT_TRUE(IsSpent(FlipTxidHex(TestTxid(1)), 4));
    EXPECT_FALSE(IsSpent(TestTxid(1), 5));
    const std::string file = ReadFile(spent_file).value_or("null");
    const std::set both{OutpointKey(TestTxid(1), 4), OutpointKey(FlipTxidHex(TestTxid(1)), 4)};
    EXPECT_EQ(nlohmann::json::parse(file), (nlohmann::json{{"outpoints", both}})) << file;
    wallet.Restart();
    EXPECT_TRUE(IsSpent(TestTxid(1), 4));

    // One byte order is enough, whoever wrote it.
    wallet.data.Put(spent_name,
                    R"({"outpoints":[7,"",")" + OutpointKey(FlipTxidHex(TestTxid(2)), 0) + R"("]})");
    LoadSpentSet();
    EXPECT_TRUE(IsSpent(TestTxid(2), 0));
    EXPECT_EQ(spent_set.size(), 3u) << "added to what was there";
    for (const char* broken : {"[]", "{", R"({"outpoints":"x"})"}) {
        wallet.data.Put(spent_name, broken);
        EXPECT_TRUE(LoadSpentSet()) << broken;
        EXPECT_EQ(spent_set.size(), 3u) << broken;
    }
}

TEST_F(SpendGuard, WhatASpentFileHoldsCountsOnceItCanBeReadAgain) {
    Spend(TestTxid(1), 0);
    const std::string file = ReadFile(spent_file).value_or("");
    RemoveFile(spent_file);
    MakeFolders(spent_file);
    ClearUtxoState();
    EXPECT_FALSE(LoadSpentSet());
    StoreUtxoList(wallet.ReceiveAddress(0), {{TestTxid(1), 0, 500}, {TestTxid(2), 0, 400}}, true, false);
    EXPECT_EQ(Collect(), "cannot read " + spent_name + "; nothing was spent.");
    Spend(TestTxid(3), 0);

    std::filesystem::remove(spent_file);
    wallet.data.Put(spent_name, file);
    EXPECT_EQ(Collect(), "2:0=400");
    Spend(TestTxid(4), 0);
    ClearUtxoState();
    Spend(TestTxid(5), 0);  // as by another installation of the same wallet
    for (const uint32_t number : {1u, 3u, 4u, 5u}) EXPECT_TRUE(IsSpent(TestTxid(number), 0)) << number;
}

TEST_F(SpendGuard, CollectionTakesTheOldestAddressesFirstWithTheirOwnKeys) {
    const std::string receive0 = wallet.ReceiveAddress(0), receive2 = wallet.ReceiveAddress(2);
    const std::string identity = wallet.IdentityAddress();
    StoreUtxoList(identity, {{TestTxid(1), 0, 900}}, true, false);
    StoreUtxoList(receive2, {{TestTxid(2), 0, 800}, {TestTxid(3), 0, 700}}, true, false);
    StoreUtxoList(receive0, {{TestTxid(4), 0, 10}}, true, false);
    StoreUtxoList(wallet.ReceiveAddress(1), {{TestTxid(5), 0, 60}}, /*ok=*/false, false);
    StoreUtxoList(wallet.ReceiveAddress(3), {{TestTxid(6), 0, 60}}, true, false);  // above recv[1]
    const Hash160 hash = AddressHash(receive2);
    pending_outputs.push_back({FlipTxidHex(TestTxid(3)), 0, 700, {}, {}, hash});
    pending_outputs.push_back({TestTxid(7), 0, 50, {}, {}, hash});
    pending_outputs.push_back({TestTxid(8), 0, 70, {}, {}, hash});

    EXPECT_EQ(Collect(), "4:0=10 2:0=800 3:0=700 1:0=900 8:0=70 7:0=50");
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

// More than a process may lock pages or map them, had each a copy of its key.
TEST_F(SpendGuard, TensOfThousandsOfCoinsFromStrangersStopNothing) {
    std::vector<Utxo> coins(70'000, {"", 0, 100});
    for (uint32_t i = 0; i < coins.size(); ++i) coins[i].txid = TestTxid(i);
    StoreUtxoList(wallet.ReceiveAddress(2), coins, /*ok=*/true, /*merge=*/false);
    int64_t total = 0;
    std::string error;
    ASSERT_TRUE(CollectSpendable(inputs, total, error)) << error;
    EXPECT_EQ(total, 7'000'000);
    std::string pub;
    EXPECT_TRUE(PublicKeyFromPrivate(inputs.back().priv, pub));
    EXPECT_EQ(AddressFromPublicKey(pub), wallet.ReceiveAddress(2));
}

}  // namespace
}  // namespace brickfall
