#include "wallet/payment/broadcast.h"

#include <gtest/gtest.h>

#include "base/files.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/coins/own_transactions.h"
#include "wallet/coins/spent_set.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/keys/key_derivation.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/hashes.h"
#include "wallet/protocol/outpoint.h"
#include "wallet/protocol/script.h"
#include "wallet/protocol/transaction.h"

namespace brickfall {
namespace {

using sandbox::Service;

const std::string kOther = "0123456789ABCDEFabcdef0123456789abcdef0123456789abcdef0123456789";

SpendInput InputOf(std::string txid) {
    SpendInput input;
    input.txid = std::move(txid);
    input.vout = 3;
    input.value = 10'000;
    return input;
}

// The services, each answering what a test tells it; no transaction is really looked at, and no wallet is
// loaded.
struct Broadcast : testing::Test {
    // `reply`: a status, a blank and a body.
    void Answer(const std::string& reply) {
        services.Reply(Service::kArc, "", std::stoi(reply), reply.substr(4));
    }

    SandboxFixture services;
    const TempUserData user_data;
    ManualClock clock;
};

TEST_F(Broadcast, ArcAnswers) {
    const std::pair<std::string, std::string> rows[] = {
        // the error, empty when it takes it
        {R"(200 {})", ""},
        {R"(200 {"txStatus":"SEEN_ON_NETWORK","extraInfo":"","txid":"short"})", ""},
        {R"(200 {"txStatus":"DOUBLE_SPEND_ATTEMPTED","extraInfo":""})", "DOUBLE_SPEND_ATTEMPTED"},
        {R"(200 {"txStatus":"REJECTED","extraInfo":"why"})", "why"},
        {R"(200 {"txStatus":"STORED","extraInfo":"so missing inputs it is"})", "so missing inputs it is"},
        {R"(200 {"txStatus":"REJECTED","extraInfo":null})", "REJECTED"},
        {R"(200 {"extraInfo":7})", R"({"extraInfo":7})"},
        {R"(200 {"txid":7})", R"({"txid":7})"},
        {"200 taken, thanks", "taken, thanks"},
        {"200 ", "bad arc response"},
        {"465 fee too low", "HTTP 465 – fee too low"},
    };
    std::string error;
    for (const auto& [reply, wanted] : rows) {
        error = "left from before";
        services.box.ClearFaults();
        Answer(reply);
        EXPECT_EQ(ArcSubmit("00", kOther, error), wanted.empty()) << reply;
        EXPECT_EQ(error, wanted);
    }
    services.box.ClearFaults();
    Answer("200 {}");
    EXPECT_FALSE(ArcSubmit("00", "no id", error));
    EXPECT_EQ(error, "arc did not return a txid");

    const SpendInput bad = InputOf("12");
    const std::vector<PayOutput> outputs{{5'000, P2pkhScript(Hash160{})}};
    const WalletLock lock(wallet_mutex);
    EXPECT_EQ(BroadcastTx(std::span(&bad, 1), outputs, Hash160{9}, error), "error: serialize failed.");
    EXPECT_EQ(error, "");
}

TEST(RecordSentTx, WhatIsSentIsRememberedAsSpentAndItsOwnOutputsAsPending) {
    const WalletFixture fixture("", /*last_receive=*/2);
    const WalletLock lock(wallet_mutex);
    const Hash160 change = AddressHash(wallet_keys.address),
                  identity = AddressHash(wallet_keys.identity_address);
    SpendInput input = InputOf(TestTxid(1));  // of receive index 0, whose key it brings along
    SecretString priv;
    std::string first;
    ASSERT_TRUE(DeriveAtPath(ReceivePath(0), priv, input.pub, first));
    input.priv = priv;
    input.hash = AddressHash(first);
    AddToCache(first, {input.txid, input.vout, input.value});
    pending_outputs.push_back({input.txid, input.vout, input.value, {}, "", input.hash});

    ByteBuffer odd_form = P2pkhScript(change), other_opcode = odd_form;
    odd_form.push_back(0);
    other_opcode.back() = 0;
    const std::vector<PayOutput> outputs{{2'000, P2pkhScript(Hash160{1})},  // foreign
                                         {0, DataCarrierScript("row")},     // data
                                         {0, P2pkhScript(change)},          // nothing in it
                                         {700, odd_form},
                                         {700, other_opcode},
                                         {1, P2pkhScript(identity)},
                                         {400, P2pkhScript(input.hash)},
                                         {5'000, P2pkhScript(change)}};
    const std::string txid = TestTxid(2);
    for (int twice = 0; twice < 2; ++twice) RecordSentTx(std::span(&input, 1), outputs, txid, change);

    EXPECT_TRUE(IsSpent(input.txid, input.vout));
    EXPECT_TRUE(FileExists(fixture.StorePath("/ord_snap/") + kTestWalletId + "_spent.json"));
    ASSERT_EQ(CoinText(pending_outputs), "2:5=1 2:6=400 2:7=5000");
    const auto key = [](std::size_t place) -> std::string_view { return pending_outputs[place].priv; };
    EXPECT_TRUE(key(0) == wallet_keys.priv && key(1) == priv && key(2) == wallet_keys.priv);
    const std::pair<std::string, const char*> listed[] = {
        {wallet_keys.identity_address, "2:5=1"}, {first, "2:6=400"}, {wallet_keys.address, "2:7=5000"}};
    for (const auto& [address, coins] : listed) {
        ASSERT_NE(FindCacheEntry(address), nullptr);
        EXPECT_EQ(CoinText(FindCacheEntry(address)->utxos), coins) << "the spent coin has gone from it";
    }
    RecordSentTx({}, {}, "no id", change);
    EXPECT_EQ(last_recorded_txid, txid);
}

}  // namespace
}  // namespace brickfall
