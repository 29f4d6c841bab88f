// The coins that the wallet remembers, and the balance that is shown from them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <future>
#include <string>
#include <vector>

#include "base/files.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/chain/address_refresh.h"
#include "wallet/coins/balance_cache.h"
#include "wallet/coins/ordinal_guard.h"
#include "wallet/coins/spent_set.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/protocol/outpoint.h"
#include "wallet/session/coin_refresh.h"
#include "wallet/session/shown_balance.h"

namespace brickfall {
namespace {

TEST(Outpoints, AreTheSameInEitherByteOrder) {
    // The coinbase transaction of the genesis block, in display order and as its bytes lie in memory.
    const std::string genesis = "4a5e1e4baab89f3a32518a88c31bc87f618f76673e2cc77ab2127b7afdeda33b";
    const std::string flipped = "3ba3edfd7a7b12b27ac72c3e67768f617fc81bc3888a51323a9fb8aa4b1e5e4a";
    std::string upper = genesis;
    std::ranges::transform(upper, upper.begin(), [](unsigned char c) { return std::toupper(c); });
    EXPECT_EQ(OutpointKey(upper, 7), genesis + ":7");
    EXPECT_EQ(FlipTxidHex(upper), flipped);
    EXPECT_EQ(FlipTxidHex(genesis.substr(2)) + FlipTxidHex(genesis + "00"), "");
    const struct {
        Utxo a, b;
        bool same;
    } rows[] = {
        {{flipped, 1}, {upper, 1}, true},    {{"AAbb", 0}, {"aabb", 0}, true},
        {{"aabb", 0}, {"bbaa", 0}, false},  // short ids have one order only
        {{genesis, 1}, {flipped, 0}, false}, {{genesis, 1}, {TestTxid(1), 1}, false},
    };
    for (const auto& [a, b, same] : rows) {
        EXPECT_EQ(SameOutpoint(a, b), same)
            << OutpointKey(a.txid, a.vout) << " " << OutpointKey(b.txid, b.vout);
        EXPECT_EQ(SameOutpoint(b, a), same);
    }
}

struct CoinMemory : testing::Test {
    // What the services say of an address; of the current one alone, one coin or none.
    void Refresh(const std::string& of, std::vector<Utxo> utxos, bool ok, bool complete) {
        ApplyRefresh({{of, std::move(utxos), ok, {}, /*guard_ok=*/true, complete}});
    }
    void Report(int64_t satoshis) { StoreUtxoList(address, {{TestTxid(1), 0, satoshis}}, true, false); }

    WalletFixture wallet;
    const WalletLock lock{wallet_mutex};
    const std::string address = wallet.ReceiveAddress(0), other = wallet.ReceiveAddress(1);
    const Hash160 hash = AddressHash(address), other_hash = AddressHash(other);
    const std::string face_name = std::string("tx_hist/") + kTestWalletId + "_face.json";
    EventLines events;
};

TEST_F(CoinMemory, AFailureNeverDamagesAGoodListAndAnAdditionRenewsIt) {
    EXPECT_EQ(CachedText(address), "-");
    Refresh(address, {}, /*ok=*/false, /*complete=*/false);
    EXPECT_EQ(CachedText(address), "?");
    EXPECT_FALSE(IsCacheFresh(address));

    Refresh(address, {{TestTxid(1), 0, 50}}, true, true);
    EXPECT_EQ(CachedText(address), "1:0=50");
    wallet.clock.AdvanceMs(7'999);
    EXPECT_TRUE(IsCacheFresh(address));
    Refresh(address, {{TestTxid(2), 0, 60}}, /*ok=*/false, /*complete=*/false);
    EXPECT_EQ(CachedText(address), "1:0=50");
    wallet.clock.AdvanceMs(1);
    EXPECT_FALSE(IsCacheFresh(address)) << "the failed fetch must not have made it younger";

    AddToCache("", {TestTxid(1), 0, 5});
    AddToCache(other, {TestTxid(1).substr(2), 0, 5});
    EXPECT_EQ(CachedText(other), "-");
    AddToCache(address, {FlipTxidHex(TestTxid(1)), 0, 50});
    AddToCache(address, {TestTxid(2), 0, 6});
    AddToCache(address, {TestTxid(3), 0, 60});
    AddToCache(address, {TestTxid(4), 0, 50});
    EXPECT_EQ(CachedText(address), "3:0=60 1:0=50 4:0=50 2:0=6");
    EXPECT_TRUE(IsCacheFresh(address));
}

TEST_F(CoinMemory, OnlyACompleteListTakesOutputsAway) {
    const std::string flipped = FlipTxidHex(TestTxid(2));
    Refresh(address, {{TestTxid(1), 0, 50}, {TestTxid(2), 0, 40}}, true, true);
    Refresh(address, {{flipped, 0, 40}, {TestTxid(3), 0, 30}}, true, /*complete=*/false);
    EXPECT_EQ(CachedText(address), "1:0=50 " + flipped + ":0=40 3:0=30");
    MarkSpentInMemory(FlipTxidHex(TestTxid(1)), 0);
    Refresh(address, {{TestTxid(4), 0, 9}, {TestTxid(1), 0, 50}}, true, /*complete=*/false);
    EXPECT_EQ(CachedText(address), flipped + ":0=40 3:0=30 4:0=9") << "1 is spent";
    MarkSpentInMemory(TestTxid(3), 0);
    PruneCacheOfSpent();
    EXPECT_EQ(CachedText(address), flipped + ":0=40 4:0=9");

    // So it is with the outputs that are pending: 5 is spent, 6 pays another address.
    pending_outputs.push_back({TestTxid(1), 1, 11, {}, {}, hash});
    pending_outputs.push_back({TestTxid(5), 0, 22, {}, {}, hash});
    pending_outputs.push_back({TestTxid(6), 0, 33, {}, {}, other_hash});
    MarkSpentInMemory(TestTxid(5), 0);
    Refresh(address, {}, true, /*complete=*/false);
    EXPECT_EQ(CachedText(address), flipped + ":0=40 1:1=11 4:0=9");
    EXPECT_EQ(CoinText(pending_outputs), "1:1=11 5:0=22 6:0=33");
    Refresh(address, {{FlipTxidHex(TestTxid(1)), 1, 11}}, true, true);
    EXPECT_EQ(CachedText(address), FlipTxidHex(TestTxid(1)) + ":1=11") << "listed, so no second copy";
    EXPECT_EQ(CoinText(pending_outputs), "1:1=11 6:0=33") << "the spent one went";
    for (int twice = 0; twice < 2; ++twice) Refresh(address, {}, true, true);
    EXPECT_EQ(CachedText(address) + CoinText(pending_outputs), "6:0=33");
}

TEST_F(CoinMemory, TheBalanceIsWhatTheCurrentAddressCanSpend) {
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

TEST_F(CoinMemory, AStaleServiceIsNotBelievedForFortyFiveSeconds) {
    NoteSpend(5'000);
    EXPECT_EQ(events.Take(), std::vector<std::string>{}) << "nothing is known";
    EXPECT_EQ(CachedBalance(), -1);
    Report(50'000);
    NoteSpend(5'000);
    EXPECT_EQ(CachedBalance(), 50'000);
    Report(9'000'000);
    EXPECT_EQ(ReadBalance(), 9'000'000) << "without a shown value a payment sets no floor";
    Report(10'000);
    EXPECT_EQ(ReadBalance(), 10'000);
    NoteSpend(5'001);
    EXPECT_EQ(ReadBalance(), 10'000) << "within the tolerance of what was shown";
    Report(2'000'000);
    wallet.clock.AdvanceMs(44'999);
    EXPECT_EQ(ReadBalance(), 4'999);
    EXPECT_EQ(ReadShownBalance(), 4'999);
    EXPECT_EQ(std::async(std::launch::async, ReadShownBalance).get(), 4'999)
        << "while this thread has the lock";
    Report(4'999 + 1'000'000);
    EXPECT_EQ(ReadBalance(), 1'004'999) << "a payment that came in, within the margin";
    Report(4'999 + 1'000'001);
    NoteSpend(0);
    EXPECT_EQ(CachedBalance(), 4'999) << "with nothing spent, the hold of the payment before applies";
    EXPECT_EQ(ReadBalance(), 4'999);
    wallet.clock.AdvanceMs(1);
    Report(2'000'000);
    EXPECT_EQ(ReadBalance(), 2'000'000);
}

TEST_F(CoinMemory, APaymentReplacesAReadingOutOfTheExpectedRange) {
    const struct {
        const char* why;
        int64_t shown, spent, reported, noted;
    } rows[] = {
        {"at the upper edge", 100'000, 6'000, 108'000, 108'000},
        {"above it", 100'000, 6'000, 108'001, 94'000},
        {"at the lower edge", 100'000, 6'000, 86'000, 86'000},
        {"below it", 100'000, 6'000, 85'999, 94'000},
        {"more than was shown", 5'000, 6'000, 20'000, 0},
        {"a shown value of zero", 0, 1, 8'001, 0},
        {"nothing spent: the hold alone, and there is none", 100'000, 0, 9'000'000, 9'000'000},
        {"the largest amounts", INT64_MAX, INT64_MAX, INT64_MAX, INT64_MAX},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        ClearBalanceMemory();
        Report(row.shown);
        ASSERT_EQ(ReadBalance(), row.shown);
        Report(row.reported);
        events.Take();
        NoteSpend(row.spent);
        EXPECT_EQ(CachedBalance(), row.noted);
        EXPECT_EQ(ReadFaceBalance(address), row.noted);
        const std::string line = "[OV-BALANCE]|" + std::to_string(row.noted) + "|" + kTestWalletId;
        EXPECT_EQ(events.Take(), std::vector<std::string>{line});
    }
}

TEST_F(CoinMemory, TheFileRemembersTheShownBalanceAcrossARestart) {
    EXPECT_EQ(ReadShownBalance(), -1);
    EXPECT_EQ(ReadBalance(), -1);
    EXPECT_FALSE(FileExists(wallet.data.InStore(face_name)));
    Report(0);
    EXPECT_EQ(ReadShownBalance(), 0) << "zero is a value";
    EXPECT_EQ(ReadFile(wallet.data.InStore(face_name)), R"({"address":")" + address + R"(","sats":0})");
    Report(777);
    EXPECT_EQ(ReadBalance(), 777);

    wallet.Restart();
    EXPECT_EQ(SpendableBalance(), -1);
    EXPECT_EQ(ReadShownBalance(), 777);
    EXPECT_EQ(CachedBalance(), 777);
    EXPECT_EQ(ReadBalance(), -1) << "the file is for the label alone";
    EXPECT_EQ(ReadFaceBalance(""), -1);
    EXPECT_EQ(ReadFaceBalance(wallet.IdentityAddress()), -1) << "of another address";
    RemoveFile(wallet.StorePath("/wallets/") + kTestWalletId + "/wallet.json");
    wallet.Restart();
    EXPECT_EQ(ReadShownBalance(), -1) << "no wallet, no value";

    const std::string of_it = R"({"address":")" + address + R"(","sats":)";
    const std::pair<std::string, int64_t> files[] = {{of_it + "9223372036854775807}", INT64_MAX},
                                                     {of_it + "9223372036854775808}", -1},
                                                     {of_it + "5.0}", -1},
                                                     {R"({"address":")" + address + "\"}", -1},
                                                     {of_it + "-9}", -1},
                                                     {"[5]", -1}};
    for (const auto& [content, satoshis] : files) {
        wallet.data.Put(face_name, content);
        EXPECT_EQ(ReadFaceBalance(address), satoshis) << content;
    }
}

}  // namespace
}  // namespace brickfall
