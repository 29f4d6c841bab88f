#include "wallet/coins/balance_cache.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/files.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/events/wallet_events.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/protocol/outpoint.h"
#include "wallet/session/shown_balance.h"

namespace brickfall {
namespace {

class BalanceCache : public testing::Test {
  protected:
    BalanceCache() : address(wallet.ReceiveAddress(0)) {
        EXPECT_TRUE(wallet.loaded);
        const std::lock_guard sink(wallet_sink_mutex);
        wallet_event_hook = [this](std::string_view line) { events.emplace_back(line); };
    }
    ~BalanceCache() override {
        const std::lock_guard sink(wallet_sink_mutex);
        wallet_event_hook = nullptr;
    }

    // What the services report for the current address.
    void Report(int64_t satoshis) {
        std::vector<Utxo> list;
        if (satoshis > 0) list.push_back({TestTxid(1), 0, satoshis});
        StoreUtxoList(address, list, true, false);
    }

    std::string FacePath() const { return wallet.StorePath("/tx_hist/") + kTestWalletId + "_face.json"; }
    std::string Face() const { return ReadFile(FacePath()).value_or(""); }

    WalletFixture wallet;
    WalletLock lock{wallet_mutex};
    const std::string address;
    std::vector<std::string> events;
};

TEST_F(BalanceCache, AStaleServiceIsNotBelievedForFortyFiveSeconds) {
    Report(10'000);
    EXPECT_EQ(ReadBalance(), 10'000);
    NoteSpend(5'001);
    EXPECT_EQ(ReadBalance(), 10'000) << "within the tolerance of what was shown";
    Report(2'000'000);
    wallet.clock.AdvanceMs(44'999);
    EXPECT_EQ(ReadBalance(), 4'999);
    EXPECT_EQ(ReadShownBalance(), 4'999);
    Report(4'999 + 1'000'000);
    EXPECT_EQ(ReadBalance(), 1'004'999) << "a payment that came in, within the margin";
    Report(4'999 + 1'000'001);
    EXPECT_EQ(ReadBalance(), 4'999);
    wallet.clock.AdvanceMs(1);
    Report(2'000'000);
    EXPECT_EQ(ReadBalance(), 2'000'000);
}

TEST_F(BalanceCache, APaymentReplacesAReadingOutOfTheExpectedRange) {
    const struct {
        const char* why;
        int64_t shown, spent, reported, noted;
    } rows[] = {
        {"the change has arrived", 100'000, 6'000, 94'000, 94'000},
        {"nothing is seen yet", 100'000, 6'000, 100'000, 100'000},
        {"at the upper edge", 100'000, 6'000, 108'000, 108'000},
        {"above it", 100'000, 6'000, 108'001, 94'000},
        {"at the lower edge", 100'000, 6'000, 86'000, 86'000},
        {"below it", 100'000, 6'000, 85'999, 94'000},
        {"the change is not listed", 100'000, 6'000, 0, 94'000},
        {"more than was shown", 5'000, 6'000, 20'000, 0},
        {"a shown value of zero", 0, 1, 8'001, 0},
        {"nothing spent: the hold alone, and there is none", 100'000, 0, 9'000'000, 9'000'000},
        {"a negative amount", 100'000, -7, 9'000'000, 9'000'000},
        {"the largest amounts", INT64_MAX, INT64_MAX, INT64_MAX, INT64_MAX},
    };
    for (const auto& row : rows) {
        ClearBalanceMemory();
        Report(row.shown);
        ASSERT_EQ(ReadBalance(), row.shown) << row.why;
        Report(row.reported);
        events.clear();
        NoteSpend(row.spent);
        EXPECT_EQ(CachedBalance(), row.noted) << row.why;
        EXPECT_EQ(ReadFaceBalance(address), row.noted) << row.why;
        const std::string line =
            "[OV-BALANCE]\x1F" + std::to_string(row.noted) + "\x1F" + std::string(kTestWalletId);
        EXPECT_EQ(events, std::vector<std::string>{line}) << row.why;
    }
}

TEST_F(BalanceCache, WithoutAShownValueAPaymentSetsNoFloor) {
    NoteSpend(5'000);
    EXPECT_TRUE(events.empty()) << "nothing is known";
    EXPECT_EQ(CachedBalance(), -1);
    Report(50'000);
    NoteSpend(5'000);
    EXPECT_EQ(CachedBalance(), 50'000);
    Report(9'000'000);
    EXPECT_EQ(ReadBalance(), 9'000'000);

    NoteSpend(8'000'000);
    Report(7'000'000);
    NoteSpend(0);
    EXPECT_EQ(CachedBalance(), 1'000'000) << "with nothing spent, the hold of the payment before applies";
}

TEST_F(BalanceCache, TheFileRemembersAcrossARestart) {
    EXPECT_EQ(ReadShownBalance(), -1);
    EXPECT_EQ(ReadBalance(), -1);
    EXPECT_EQ(Face(), "");
    Report(0);
    EXPECT_EQ(ReadShownBalance(), 0) << "zero is a value";
    EXPECT_EQ(Face(), R"({"address":")" + address + R"(","sats":0})");
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
}

TEST_F(BalanceCache, ABrokenFileIsNoValue) {
    const auto face = [this](const std::string& satoshis) {
        return R"({"address":")" + address + R"(","sats":)" + satoshis + "}";
    };
    MakeFolders(wallet.StorePath("/tx_hist"));
    const auto read = [this](const std::string& content) {
        EXPECT_TRUE(WriteFile(FacePath(), content));
        return ReadFaceBalance(address);
    };
    EXPECT_EQ(read(face("5")), 5);
    EXPECT_EQ(read(face("9223372036854775807")), INT64_MAX);
    for (const std::string& broken :
         {face("5.0"), face("\"5\""), face("-9"), face("9223372036854775808"), face("1e300"),
          face("5").substr(0, 20), R"({"address":")" + address + R"("})", std::string(R"({"sats":5})"),
          std::string(R"({"address":7,"sats":5})"), std::string("[5]"), std::string()}) {
        EXPECT_EQ(read(broken), -1) << broken;
    }
}

}  // namespace
}  // namespace brickfall
