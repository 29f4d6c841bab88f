// What happens to the player's money when services fail, lie or lag. Each story ends with the text that the
// player reads and with a count of the satoshis on the chain.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <mutex>
#include <new>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>
#include <vector>

#include "base/files.h"
#include "base/text.h"
#include "base/workers.h"
#include "deployment/deployment.h"
#include "net/http_client.h"
#include "tests/support/full_disk.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/chain/address_refresh.h"
#include "wallet/coins/balance_cache.h"
#include "wallet/coins/ordinal_guard.h"
#include "wallet/coins/own_transactions.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/events/wallet_events.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/link/connect_handshake.h"
#include "wallet/payment/pay_drivers.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/script.h"
#include "wallet/protocol/transaction.h"
#include "wallet/session/coin_refresh.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/app_binds.h"
#include "wallet/store/paymail_registry.h"
#include "wallet/store/shared_store.h"

namespace brickfall {
namespace {

using sandbox::Fault;
using sandbox::FaultKind;
using sandbox::Service;

constexpr int64_t kEntrySats = kArcadeHouseSats + kArcadePotSats;
constexpr int64_t kEntryFee = 153;  // one input, change
constexpr char kNothingLeft[] = "error: you have 0 in your Pouch wallet.";
constexpr char kNotConnected[] =
    "error: Pouch wallet not connected. Create or Restore in Pouch, then Connect in the app.";
const std::string kStranger(64, 'e');  // an id that is no transaction's

Fault Reply(int status, std::string body, std::string path = "", int times = -1) {
    return {FaultKind::kReply, status, std::move(body), "text/plain", {}, 0, times, std::move(path)};
}

Fault Of(FaultKind kind, Fault fault = {}) {
    fault.kind = kind;
    return fault;
}

using Aimed = std::pair<Service, Fault>;

const Aimed kRelayDown{Service::kRelay, Of(FaultKind::kDrop)};

Aimed ChainSays(int status, std::string body, int times = -1) {
    return {Service::kChain, Reply(status, std::move(body), "/tx/raw", times)};
}

Aimed ChainActsAndSays(int status, std::string body) {
    return {Service::kChain, Of(FaultKind::kActAndReply, Reply(status, std::move(body), "/tx/raw"))};
}

// A wallet with one receive address, and the services.
struct MoneyStory {
    explicit MoneyStory(int timeout_divisor = 1, uint32_t last_receive = 0)
        : services(timeout_divisor), wallet("ada", last_receive) {
        EXPECT_TRUE(wallet.loaded);
        receive = wallet.ReceiveAddress(0);
    }

    // A mined coin: the first output of this transaction.
    std::string Fund(int64_t satoshis) {
        const std::string txid = box.Fund(receive, satoshis);
        EXPECT_EQ(txid.size(), 64u);
        box.Mine();
        return txid;
    }

    void Add(const Aimed& aimed) { box.AddFault(aimed.first, aimed.second); }

    std::string Pay() {
        std::string text = PayArcadeEntry(kArcadeHouseAddress, kArcadePotAddress);
        WaitForWorkers();
        return text;
    }

    // The listings are read now, as a status refresh would.
    void Refresh() {
        std::vector<AddressRefresh> records(2);
        records[0].address = receive;
        records[1].address = wallet.IdentityAddress();
        FetchRefreshRecords(records, OrdinalScans::kAll);
        ApplyRefresh(records);
    }

    // The same wallet on another machine spends a coin of the receive address, past this program's memory.
    void SpendElsewhere(const std::string& txid, int64_t value) {
        SpendInput coin;
        coin.txid = txid;
        coin.value = value;
        const Hash160 owner = AddressHash(receive);
        const PayOutput output{value - 500, P2pkhScript(Hash160{})};
        const WalletLock lock(wallet_mutex);
        ASSERT_TRUE(SignInput(coin, {&coin, 1}, {&output, 1}, owner, wallet_keys.priv, wallet_keys.pub));
        std::string spender, reason;
        const ByteBuffer raw = SerializeTx({&coin, 1}, {&output, 1}, false);
        ASSERT_TRUE(box.Submit(HexEncode(raw), spender, reason)) << reason;
        elsewhere += value;
    }

    bool Holds(const std::string& txid) {
        return std::ranges::any_of(box.Unspent(receive),
                                   [&](const auto& output) { return output.txid == txid; });
    }

    // Every satoshi that was ever made is with a known owner, and `entries` payments have been made.
    void ExpectBooks(int entries, int64_t fees = -1) {
        EXPECT_EQ(box.TotalFunded(), box.TotalUnspent() + box.TotalFees());
        EXPECT_EQ(box.BalanceOf(kArcadeHouseAddress), entries * kArcadeHouseSats);
        EXPECT_EQ(box.BalanceOf(kArcadePotAddress), entries * kArcadePotSats);
        const int64_t paid = entries * kEntrySats + (fees >= 0 ? fees : entries * kEntryFee);
        const int64_t own = box.BalanceOf(receive) + box.BalanceOf(wallet.IdentityAddress());
        EXPECT_EQ(own, box.TotalFunded() - elsewhere - paid);
    }

    // The program knows what it has without asking anybody.
    void ExpectBalanceKnown() {
        const WalletLock lock(wallet_mutex);
        EXPECT_EQ(SpendableBalance(), box.BalanceOf(receive));
        EXPECT_EQ(ReadFaceBalance(receive), box.BalanceOf(receive));
    }

    static int64_t Shown() {
        const WalletLock lock(wallet_mutex);
        return ReadBalance();
    }

    SandboxFixture services;
    sandbox::Sandbox& box = services.box;
    WalletFixture wallet;
    std::string receive;
    int64_t elsewhere = 0;  // taken out of the wallet by other hands, their fees included
};

bool IsPaid(const std::string& text) { return text.starts_with("success: ") && IsTxidText(text.substr(9)); }

TEST(MoneyStory, OnePaymentThroughEveryKindOfAnswer) {
    struct Row {
        const char* why;
        std::vector<Aimed> faults;
        std::string text = "success";   // or with another id than that of a transaction on the chain
        bool moved = true;              // the payment is on the chain
        std::string after = "success";  // what a second payment says once the services are well
    };
    const std::string missing = "unexpected response code 500: Missing inputs";
    const std::string known = "unexpected response code 500: 257: txn-already-known";
    const std::string failed = "error: broadcast failed: ";
    const std::string unconfirmed = "error: broadcast did not confirm. Wait a few seconds and try again.";
    const Aimed& down = kRelayDown;
    const Aimed loses{Service::kRelay, Of(FaultKind::kLoseAccepted)};
    const Aimed acts_and_fails{Service::kRelay, Of(FaultKind::kActAndReply, Reply(500, "try later"))};
    const Aimed cut{Service::kChain, Of(FaultKind::kCutBody, Reply(200, "", "/tx/raw"))};
    const Aimed arc_refuses{Service::kArc, Reply(200, R"({"txStatus":"REJECTED"})")};
    const Aimed arc_babbles{Service::kArc, Reply(200, "]moo[")};
    const Aimed arc_acts{Service::kArc, Of(FaultKind::kActAndReply, Reply(200, "]moo["))};
    const std::string other = "success: " + kStranger;
    const Row rows[] = {
        {"all is well", {}},
        {"relay down", {down}},
        {"relay refuses", {{Service::kRelay, Reply(503, "busy")}}},
        {"relay says no", {{Service::kRelay, Reply(200, R"({"ok":false})")}}},
        {"relay loses it, the second copy arrives", {loses}},
        {"relay loses it, and the second copy too", {loses, ChainSays(503, "")}, "success: lost", false},
        {"limited until it gives up", {down, ChainSays(429, "")}, failed + kRateLimitText, false},
        {"limited once", {down, ChainSays(429, "", 1)}},
        {"an HTML page", {down, ChainSays(502, "<html>Bad gateway</html>")}, failed + "HTTP 502", false},
        {"cut in the middle of the answer", {down, cut}},
        {"quoted id and newline, another id",
         {down, ChainActsAndSays(200, "\"" + kStranger + "\"\n")},
         other},
        {"an object, another id", {down, ChainActsAndSays(200, R"({"txid":")" + kStranger + "\"}")}, other},
        {"no id, but it can be seen", {down, ChainActsAndSays(200, "thanks")}},
        {"no id, and it cannot be seen", {down, ChainSays(200, "thanks")}, unconfirmed, false},
        {"known already, and seen", {acts_and_fails}},
        {"known, and not seen", {down, ChainSays(400, known)}, failed + "HTTP 400 – " + known, false},
        {"ARC takes it", {down, ChainSays(400, missing)}},
        {"ARC refuses", {down, ChainSays(400, missing), arc_refuses}, kNothingLeft, false, kNothingLeft},
        {"ARC babbles", {down, ChainSays(400, missing), arc_babbles}, kNothingLeft, false, kNothingLeft},
        {"ARC takes it and babbles", {down, ChainSays(400, missing), arc_acts}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.why);
        MoneyStory story;
        story.Fund(10'000);
        story.Fund(10'000);
        for (const Aimed& aimed : row.faults) story.Add(aimed);
        const std::string text = story.Pay();
        const bool succeeds = row.text == "success";
        if (succeeds || row.text == "success: lost") {
            EXPECT_TRUE(IsPaid(text)) << text;
            EXPECT_EQ(story.box.RawTransaction(text.substr(9)).has_value(), row.moved);
        } else {
            EXPECT_EQ(text, row.text);
        }
        story.ExpectBooks(row.moved ? 1 : 0);
        if (succeeds) story.ExpectBalanceKnown();

        story.box.ClearFaults();
        const std::string again = story.Pay();
        EXPECT_EQ(IsPaid(again) ? "success" : again, row.after);
        story.ExpectBooks((row.moved ? 1 : 0) + (row.after == "success" ? 1 : 0));
    }
}

TEST(MoneyStory, RelaySlowerThanTwoSeconds) {
    MoneyStory story(/*timeout_divisor=*/40);  // so that two seconds are 50 ms
    story.Fund(10'000);
    story.Add({Service::kRelay, {FaultKind::kDelay, 500, "", "", {}, /*delay_ms=*/500, -1, ""}});
    story.Add(ChainActsAndSays(200, kStranger));
    EXPECT_EQ(story.Pay(), "success: " + kStranger) << "the relay was waited for";
    story.ExpectBooks(1);
}

TEST(MoneyStory, ACoinThatIsGone) {
    // "Missing inputs", or "txn-mempool-conflict". A listing still names the coin; or only the program's
    // memory.
    for (const auto& [mined, stale] : {std::pair(true, false), {false, false}, {true, true}}) {
        for (const bool others_left : {true, false}) {
            SCOPED_TRACE(testing::Message() << "mined " << mined << ", stale " << stale << others_left);
            MoneyStory story;
            const std::string gone = story.Fund(20'000);
            if (others_left) story.Fund(10'000);
            if (stale) {
                story.Add({Service::kChain, Of(FaultKind::kStaleListing)});
            } else {
                story.Refresh();
            }
            story.SpendElsewhere(gone, 20'000);
            if (mined) story.box.Mine();
            story.box.ClearRequests();

            const std::string text = story.Pay();
            EXPECT_TRUE(others_left ? IsPaid(text) : text == kNothingLeft) << text;
            if (others_left) story.ExpectBalanceKnown();
            EXPECT_EQ(story.services.Asked(Service::kArc) > 0, mined);
            EXPECT_EQ(story.services.Asked(Service::kOrdinals, "/txos/") > 0, mined)
                << "only missing inputs are looked up";
            const auto file = ReadFile(story.wallet.StorePath("/ord_snap/") + kTestWalletId + "_spent.json");
            EXPECT_TRUE(file && file->find(gone) != std::string::npos) << "forgotten at the next start";
            story.ExpectBooks(others_left ? 1 : 0);
        }
    }
}

// The service took it, said the opposite, and shows it only a while later: it must not be paid twice.
TEST(MoneyStory, ARefusedPaymentThatShowsUpAfterAll) {
    MoneyStory story;
    story.Fund(10'000);
    story.Add(kRelayDown);
    story.Add(ChainActsAndSays(400, "Missing inputs"));
    story.Add({Service::kArc, Reply(200, R"({"txStatus":"REJECTED"})")});
    story.Add({Service::kChain, Reply(404, "", "/main/tx/", /*times=*/2)});  // as hex, then decoded
    const std::string text = story.Pay();
    EXPECT_TRUE(IsPaid(text)) << text;
    EXPECT_TRUE(story.box.RawTransaction(text.substr(9)).has_value());
    story.ExpectBooks(1);
    story.ExpectBalanceKnown();
}

TEST(MoneyStory, ThreeRefusalsEndThePayment) {
    // And whether the ordinals service is looked at again.
    for (const auto& [words, looks_again] : {std::pair("Missing inputs", true),
                                             {"258: txn-mempool-conflict", false},
                                             {"missing inputs: txn-mempool-conflict", false}}) {
        SCOPED_TRACE(words);
        MoneyStory story;
        for (int i = 0; i < 4; ++i) story.Fund(10'000);
        story.Refresh();
        story.box.ClearRequests();
        for (const Aimed& aimed :
             {kRelayDown, ChainSays(400, words), Aimed{Service::kArc, Of(FaultKind::kDrop)},
              Aimed{Service::kOrdinals, Of(FaultKind::kDrop)}}) {
            story.Add(aimed);
        }
        EXPECT_EQ(story.Pay(), "error: broadcast failed after retry.");
        EXPECT_EQ(story.services.Asked(Service::kOrdinals, "/txos/") > 0, looks_again);
        EXPECT_EQ(CachedText(story.receive).find(' '), std::string::npos) << "what was refused is listed";
        story.ExpectBooks(0);
        story.box.ClearFaults();
        EXPECT_TRUE(IsPaid(story.Pay())) << "the fourth coin was never refused";
        story.ExpectBooks(1);
    }
}

TEST(MoneyStory, CoinsOfEveryAddressEachWithItsOwnKey) {
    MoneyStory story(/*timeout_divisor=*/1, /*last_receive=*/2);
    const std::string current = story.wallet.ReceiveAddress(2);
    for (const std::string& address : {story.receive, current, story.wallet.IdentityAddress()}) {
        ASSERT_FALSE(story.box.Fund(address, 2'000).empty());
    }
    EXPECT_TRUE(IsPaid(story.Pay()));
    const int64_t fee = kEntryFee + 2 * 41;  // two more inputs
    EXPECT_EQ(story.box.BalanceOf(current), 6'000 - kEntrySats - fee) << "change goes to the address in use";
    EXPECT_EQ(story.box.TotalFees(), fee);
    EXPECT_EQ(story.box.TotalFunded(), story.box.TotalUnspent() + fee);
    const WalletLock lock(wallet_mutex);
    EXPECT_EQ(SpendableBalance(), 6'000 - kEntrySats - fee);
}

// Anybody may send coins to the address that a recorded row names. One of two satoshis costs 41 to spend.
TEST(MoneyStory, DustThatStrangersSendIsNotSpentBeforeTheChange) {
    MoneyStory story;
    story.Fund(100'000);
    for (int i = 0; i < 50; ++i) story.Fund(2);
    for (const bool listed_again : {false, true}) {
        story.Refresh();
        const int64_t before = story.box.TotalFees();
        EXPECT_TRUE(IsPaid(story.Pay()));
        EXPECT_EQ(story.box.TotalFees() - before, kEntryFee) << listed_again;
        EXPECT_TRUE(IsPaid(PayArcadeScore(kArcadeWatchAddress, "row")));
        WaitForWorkers();
        const int64_t record_fee = 10 + 41 + (34 + 15) + 34;  // an input, marker, row of three bytes, change
        EXPECT_EQ(story.box.TotalFees() - before, kEntryFee + record_fee) << listed_again;
    }
}

// Of an address that an older row names, whose coins go before those of the address in use.
TEST(MoneyStory, DustOnAnOlderAddressStopsNoPayment) {
    MoneyStory story(/*timeout_divisor=*/1, /*last_receive=*/1);
    const std::string current = story.wallet.ReceiveAddress(1);
    for (int i = 0; i < 300; ++i) story.box.Fund(story.receive, 2);
    story.box.Fund(current, 9'000);  // the dust alone would cost 12,300
    EXPECT_TRUE(IsPaid(story.Pay()));
    EXPECT_EQ(story.box.TotalFees(), kEntryFee);
    EXPECT_EQ(story.box.BalanceOf(current), 9'000 - kEntrySats - kEntryFee);
}

// A service that lags behind reports more than there is; for a while the player is shown what is left.
TEST(MoneyStory, TheShownBalanceFallsByAmountAndFee) {
    MoneyStory story;
    story.Fund(10'000);
    story.Refresh();
    EXPECT_EQ(MoneyStory::Shown(), 10'000);
    EXPECT_TRUE(IsPaid(story.Pay()));
    story.Fund(3'000'000);
    story.Refresh();
    EXPECT_EQ(MoneyStory::Shown(), 10'000 - kEntrySats - kEntryFee);
    story.wallet.clock.AdvanceMs(kSpendHoldNs / 1'000'000);
    EXPECT_EQ(MoneyStory::Shown(), story.box.BalanceOf(story.receive));
    story.ExpectBooks(1);
}

// A listing in reversed byte order names transactions that do not exist: the coins are never sent to a wrong
// place for it, and they stay on the chain.
TEST(MoneyStory, NoListingOrOneInReversedByteOrder) {
    for (const Fault& fault : {Reply(500, "", "/address/"), Of(FaultKind::kFlipTxids)}) {
        MoneyStory story;
        story.Fund(10'000);
        story.Add({Service::kChain, fault});
        EXPECT_EQ(story.Pay(), kNothingLeft);
        story.ExpectBooks(0);
        story.box.ClearFaults();
        if (fault.kind == FaultKind::kFlipTxids) continue;
        EXPECT_TRUE(IsPaid(story.Pay()));
        story.ExpectBooks(1);
    }
}

TEST(MoneyStory, WhatTheOrdinalsServiceSaysAndDoesNotSay) {
    struct Row {
        const char* why;
        bool scanned_before;  // a refresh an hour ago has named the inscription
        std::vector<Fault> faults;
        bool refreshed;       // by the service as it is now
        bool marked_is_held;  // the large coin that carries an inscription
        bool single_is_free;  // a coin of one satoshi
    };
    const Row rows[] = {
        {"up: it names the inscription and clears the single satoshi", false, {}, true, true, true},
        {"up: a payment asks for itself before it spends", false, {}, false, true, true},
        {"down: single satoshis are suspect", false, {Of(FaultKind::kDrop)}, true, false, false},
        {"down, and nothing was refreshed", false, {Of(FaultKind::kDrop)}, false, false, false},
        {"slow", false, {Of(FaultKind::kNoAnswer)}, true, false, false},
        {"nonsense", false, {Reply(200, "{\"a\":")}, true, false, false},
        {"down now: what was named stays", true, {Of(FaultKind::kDrop)}, true, true, false},
        {"named long ago, and not asked since", true, {}, false, true, false},
        {"it does not name it any more", true, {Reply(200, "[]")}, true, true, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.why);
        MoneyStory story(/*timeout_divisor=*/20);
        const std::string marked = story.Fund(10'000);
        const std::string plain = story.Fund(9'000);
        const std::string single = story.Fund(1);
        story.box.MarkOrdinal(story.receive, {marked, 0, marked + "_0"});
        if (row.scanned_before) story.Refresh();
        story.wallet.clock.AdvanceMs(3'600'000);
        for (const Fault& fault : row.faults) story.Add({Service::kOrdinals, fault});
        if (row.refreshed) story.Refresh();
        EXPECT_TRUE(IsPaid(story.Pay()));
        EXPECT_EQ(story.Holds(marked), row.marked_is_held);
        EXPECT_EQ(story.Holds(plain), !row.marked_is_held);
        {
            const WalletLock lock(wallet_mutex);
            EXPECT_EQ(IsOrdinalForAddress(story.receive, {single, 0, 1}), !row.single_is_free);
            EXPECT_EQ(IsOrdinalAnywhere({marked, 0, 10'000}), row.marked_is_held);
        }
        story.ExpectBooks(1);
    }
}

TEST(MoneyStory, CoinsPromisedToOthersAreHeldAsLongAsTheirFileCanBeRead) {
    MoneyStory story;
    const std::string offered = story.Fund(20'000), picture = story.Fund(19'000),
                      certificate = story.Fund(18'000), sold = story.Fund(17'000),
                      run_out = story.Fund(16'000);
    const std::string tail = kTestWalletId + std::string(".json");
    const std::pair<std::string, std::string> files[] = {
        {"gallery/offer_locks_" + tail, R"({"utxos":[")" + offered + "_0\"]}"},
        {"gallery/reserves_" + tail, R"({"reserves":[{"pic_utxo":")" + picture +
                                         R"(:0","exp":0},{"pic_utxo":"x","cert_utxo":")" + certificate +
                                         R"(_0"},{"pic_utxo":")" + run_out + R"(_0","exp":1000}]})"},
        {"emporium/reserves_" + tail, R"({"reserves":[{"utxo":")" + sold + R"(_0","exp":1}]})"},
    };
    for (const auto& [file, text] : files) story.wallet.data.Put(file, text);
    EXPECT_TRUE(IsPaid(story.Pay()));
    const std::string promised[] = {offered, picture, certificate, sold};
    for (const std::string& held : promised) EXPECT_TRUE(story.Holds(held)) << held;
    EXPECT_FALSE(story.Holds(run_out));
    story.ExpectBooks(1);

    for (const auto& [file, text] : files) story.wallet.data.Put(file, text.substr(0, text.size() - 2));
    for (int i = 0; i < 4; ++i) EXPECT_TRUE(IsPaid(story.Pay())) << "half-written: it promises nothing";
    for (const std::string& held : promised) EXPECT_FALSE(story.Holds(held)) << held;
    story.ExpectBooks(5);
}

TEST(MoneyStory, TenPaymentsInARowBeforeAnyIndexerHasSeenOne) {
    MoneyStory story;
    story.Fund(100'000);
    story.box.SetIndexerKnows(false);
    story.Add({Service::kChain, Of(FaultKind::kStaleListing)});
    for (int i = 0; i < 10; ++i) {
        const std::string text = story.Pay();
        ASSERT_TRUE(IsPaid(text)) << text;
        if (i % 3 == 2) story.Refresh();  // the listing that knows of nothing must not undo the change
    }
    story.ExpectBooks(10);
    EXPECT_EQ(story.box.BalanceOf(story.receive), 100'000 - 10 * (kEntrySats + kEntryFee));
    EXPECT_EQ(MoneyStory::Shown(), story.box.BalanceOf(story.receive));
}

// A service that is limited once makes the program wait, and meanwhile the other thing happens.
struct MeanwhileStory : MoneyStory {
    std::string PayWhile(const Aimed& limited, const std::function<void()>& work) {
        Add(limited);
        wallet.clock.on_sleep = [work, done = false](int64_t) mutable {
            if (!std::exchange(done, true)) work();
        };
        return Pay();
    }

    // Its address.
    std::string UseAnotherWallet() {
        const nlohmann::json file = {
            {"mnemonic", "legal winner thank year wave sausage worth useful legal winner thank yellow"}};
        wallet.data.Put("wallets/other/wallet.json", file.dump());
        const WalletLock lock(wallet_mutex);
        ClearWalletState();
        SetWalletId("other");
        EXPECT_TRUE(LoadWallet());
        return wallet_keys.address;
    }
};

const Aimed kLimitedListing{Service::kChain, Reply(429, "", "/unspent/all", 1)};

TEST(MoneyStory, AnotherWalletDuringTheFetch) {
    MeanwhileStory story;
    story.Fund(10'000);
    EXPECT_EQ(story.PayWhile(kLimitedListing, [&] { story.UseAnotherWallet(); }), "error: wallet changed.");
    EXPECT_TRUE(utxo_cache.empty()) << "coins of one wallet in the memory of another";
    EXPECT_EQ(story.box.BalanceOf(story.receive), 10'000);
    EXPECT_EQ(story.box.TotalFees(), 0);
}

TEST(MoneyStory, AnotherWalletDuringTheSecondLookAfterARejection) {
    MeanwhileStory story;
    const std::string gone = story.Fund(20'000);
    story.Refresh();
    story.SpendElsewhere(gone, 20'000);
    story.box.Mine();
    std::string other_address;
    const Aimed limited{Service::kOrdinals, Reply(429, "", "", 1)};
    const std::string text = story.PayWhile(limited, [&] {
        other_address = story.UseAnotherWallet();
        story.box.Fund(other_address, 50'000);
    });
    EXPECT_EQ(text, "error: wallet changed.");
    EXPECT_EQ(story.box.BalanceOf(other_address), 50'000) << "one wallet paid for the other";
    EXPECT_EQ(story.box.BalanceOf(kArcadeHouseAddress), 0);
}

TEST(MoneyStory, AnUnbindDuringTheFetchAndDuringTheBroadcastWhichItWaitsFor) {
    MeanwhileStory story;
    story.Fund(10'000);
    EXPECT_EQ(story.PayWhile(kLimitedListing, [] { UnbindWallet(); }), "error: wallet changed.");
    EXPECT_FALSE(IsConnected());
    EXPECT_EQ(story.box.BalanceOf(story.receive), 10'000);

    WriteBind(kTestWalletId);
    story.wallet.Restart();
    story.Add(kRelayDown);
    const auto unbind = [] { StartWorker([] { UnbindWallet(); }); };
    EXPECT_TRUE(IsPaid(story.PayWhile(ChainSays(429, "", 1), unbind)));
    EXPECT_FALSE(IsConnected());
    EXPECT_EQ(story.Pay(), kNotConnected);
    story.ExpectBooks(1);
}

TEST(MoneyStory, NothingCanBeWritten) {
    MoneyStory story;
    story.Fund(40'000);
    const auto write_and_pay_twice = [&](int paid_before) {
        RegisterPaymail("ada", wallet_keys.identity_pub, wallet_keys.identity_address);
        SetWalletName(kTestWalletId, "New name");
        WriteBind(kTestWalletId);
        EXPECT_TRUE(IsConnected());
        for (int i = 0; i < 2; ++i) {  // what memory holds is enough for the second
            const std::string text = story.Pay();
            EXPECT_TRUE(IsPaid(text)) << text;
        }
        story.ExpectBooks(paid_before + 2);
        EXPECT_EQ(MoneyStory::Shown(), story.box.BalanceOf(story.receive));
    };
    {
        const FullDisk full(0);
        write_and_pay_twice(0);
    }
    story.wallet.Restart();
    ASSERT_TRUE(story.wallet.loaded) << "a failed write has damaged the wallet or its list";
    EXPECT_TRUE(IsPaid(story.Pay()));

    // Folders stand where the files belong.
    for (const std::string& path :
         {story.wallet.StorePath("/tx_hist/") + kTestWalletId + "_face.json",
          story.wallet.StorePath("/orvane_paymail.json"), story.wallet.StorePath("/wallets.json"),
          story.wallet.StorePath("/wallets.json.tmp"), BindFilePath()}) {
        std::filesystem::remove_all(path);
        std::filesystem::create_directories(path);
    }
    write_and_pay_twice(3);
}

TEST(MoneyStory, WhatTellsThePromisedCoinsCannotBeRead) {
    const std::string tail = kTestWalletId + std::string(".json");
    for (const std::string& file :
         {"ord_snap/" + std::string(kTestWalletId) + "_spent.json", "emporium/reserves_" + tail,
          "gallery/reserves_" + tail, "gallery/offer_locks_" + tail}) {
        SCOPED_TRACE(file);
        MoneyStory story;
        story.Fund(20'000);
        const std::string path = story.wallet.StorePath("/" + file);
        ASSERT_TRUE(MakeFolders(path));  // a folder of that name
        story.wallet.Restart();
        EXPECT_EQ(story.Pay(), "error: cannot read " + file + "; nothing was spent.");
        story.ExpectBooks(0);
        std::filesystem::remove(path);
        EXPECT_TRUE(IsPaid(story.Pay())) << "asked again at the next payment";
        story.ExpectBooks(1);
    }
}

// The last transaction is read back within the collection, and the service asks for patience: time enough for
// another program to promise the coin to somebody.
TEST(MoneyStory, ACoinPromisedWhileThePaymentIsUnderWay) {
    MoneyStory story;
    const std::string coin = story.Fund(20'000);
    story.Add({Service::kChain, Reply(200, "[]", "/address/")});
    story.Add({Service::kChain, Reply(429, "", "/tx/" + coin, 1)});
    {
        const WalletLock lock(wallet_mutex);
        last_recorded_txid = coin;
    }
    story.wallet.clock.on_sleep = [&](int64_t) {
        story.wallet.data.Put(std::string("gallery/offer_locks_") + kTestWalletId + ".json",
                              R"({"utxos":[")" + coin + R"(_0"]})");
    };
    EXPECT_EQ(story.Pay(), kNothingLeft);
    story.ExpectBooks(0);
}

// What a score and a report pay for stands in the tests of their flows.
TEST(MoneyStory, EachDriverSaysWhyItDoesNotPay) {
    MoneyStory story;
    story.Fund(50'000);
    EXPECT_EQ(PayArcadeEntry("nowhere", "nowhere"), "error: arcade house address decode failed.");
    EXPECT_EQ(PayArcadeEntry(kArcadeHouseAddress, ""), "error: arcade pot address decode failed.");
    EXPECT_EQ(PayArcadeScore("nowhere", ""), "error: empty arcade score payload.");
    EXPECT_EQ(PayArcadeScore("nowhere", "row"), "error: arcade oracle decode failed.");
    EXPECT_EQ(PayReport(""), "error: empty report payload.");
    UnbindWallet();
    EXPECT_EQ(PayArcadeScore("nowhere", ""), kNotConnected);
    story.ExpectBooks(0);

    // Only a wallet of words pays.
    story.wallet.data.Put("wallets/old/wallet.json", R"({"priv":")" + std::string(63, '0') + "1\"}");
    WalletLock lock(wallet_mutex);
    const std::vector<PayOutput> outputs{{1'000, P2pkhScript(Hash160{})}};
    SetWalletId("none");
    EXPECT_EQ(PayOutputs(lock, outputs), "error: no Orvane Pouch wallet. Use pouch create first.");
    SetWalletId("old");
    EXPECT_EQ(PayOutputs(lock, outputs), "error: need an HD Pouch wallet.");
    EXPECT_TRUE(lock.owns_lock());
}

TEST(MoneyStory, MemoryRefusedOnceItIsPaid) {
    MoneyStory story;
    story.Fund(10'000);
    const auto install = [](WalletHook hook) {
        const std::lock_guard sink(wallet_sink_mutex);
        wallet_event_hook = std::move(hook);
    };
    install([](std::string_view line) {
        if (line.starts_with("[OV-BALANCE]")) throw std::bad_alloc();
    });
    const std::string text = story.Pay();
    install(nullptr);
    EXPECT_TRUE(IsPaid(text)) << text;
    story.ExpectBooks(1);
}

TEST(MoneyStory, TooLittleMoneyIsNamedToTheSatoshi) {
    MoneyStory story;
    story.Fund(5'000);
    EXPECT_EQ(story.Pay(), "error: insufficient funds. Need 5119 sats, you have 5000 in your Pouch wallet.");
    story.ExpectBooks(0);
    story.Fund(2'000);
    story.Refresh();
    EXPECT_TRUE(IsPaid(story.Pay()));
    story.ExpectBooks(1, kEntryFee + 41);  // a second input
}

}  // namespace
}  // namespace brickfall
