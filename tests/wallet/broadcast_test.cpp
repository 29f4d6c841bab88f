#include "wallet/payment/broadcast.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "base/files.h"
#include "base/workers.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/coins/own_transactions.h"
#include "wallet/coins/spent_set.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/keys/key_derivation.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/hashes.h"
#include "wallet/protocol/outpoint.h"
#include "wallet/protocol/script.h"
#include "wallet/protocol/transaction.h"

namespace brickfall {
namespace {

using sandbox::Fault;
using sandbox::Sandbox;
using sandbox::Service;

const std::string kOther = "0123456789ABCDEFabcdef0123456789abcdef0123456789abcdef0123456789";

Hash160 HashOf(uint8_t filler) {
    Hash160 hash{};
    hash.fill(filler);
    return hash;
}

SpendInput SomeInput() {
    SpendInput input;
    input.txid = std::string(64, 'c');
    input.vout = 3;
    input.value = 10'000;
    return input;
}

// The services, each answering what a test tells it; no transaction is really looked at, and no wallet is
// loaded.
class Broadcast : public ::testing::Test {
  protected:
    // `reply`: a status, a blank and a body, in which "OTHER" stands for the id of another transaction.
    void Answer(Service service, std::string reply, const std::string& path = "") {
        if (const auto at = reply.find("OTHER"); at != std::string::npos) reply.replace(at, 5, kOther);
        services_.Reply(service, path, std::stoi(reply), reply.substr(4));
    }

    SandboxFixture services_;
    Sandbox& sandbox_ = services_.box;
    TempUserData user_data_;
    ManualClock clock_;
};

TEST_F(Broadcast, DecidesFromTheAnswersWhetherItWentOut) {
    const std::string down = "500 ", long_words(121, 'x'), own = "success: OWN", other = "success: OTHER";
    const std::string failed = "error: broadcast failed: HTTP ";
    const std::string unconfirmed = "error: broadcast did not confirm. Wait a few seconds and try again.";
    const struct {
        const char* why;
        std::string relay, chain;
        bool visible;
        std::string text;
        std::string arc = {};  // empty: it is not asked
    } rows[] = {
        {"relay answers no JSON", "200 <html>welcome", down, false, own},
        {"relay's ok is no boolean", R"(201 {"ok":"false"})", down, false, own},
        {"relay's root is no object", "200 [false]", down, false, own},
        {"all that is stripped", R"(200 {"ok":false})", "200  \n\"OTHER\"\r\n \"", false, other},
        {"a string of JSON", down, "200 \r\"OTHER\"", false, other},
        {"an object without", down, R"(200 {"result":"OTHER"})", false, unconfirmed},
        {"the same, seen", down, R"(200 {"result":"OTHER"})", true, own},
        {"the id is a number", down, R"(200 {"txid":5})", false, unconfirmed},
        {"64 characters, no id", down, "200 " + std::string(64, 'z'), true, own},
        {"nothing at all", down, "200 ", false, unconfirmed},
        {"had already, seen", down, "500 we already have it", true, own},
        {"conflict, seen", down, "500 258: txn-mempool-conflict", true, own},
        {"other words, though seen", down, "500 Already in it", true, failed + "500 – Already in it"},
        {"missing, ARC takes it", down, "400 Missing inputs", false, own, R"(200 {"txid":"OTHER"})"},
        {"missing, ARC refuses", down, "400 missingorspent", false, failed + "400 – missingorspent",
         R"(200 {"txStatus":"REJECTED","extraInfo":"not these words"})"},
        {"the case of the words counts", down, "400 MISSING INPUTS", false, failed + "400 – MISSING INPUTS"},
        {"words past the part that is shown", down, "400 " + long_words + "Missing inputs", false,
         failed + "400 – " + long_words.substr(1)},
        {"an HTML page", down, "502 <html>Missing inputs</html>", false, failed + "502"},
    };
    const std::vector<SpendInput> inputs{SomeInput()};
    const std::vector<PayOutput> outputs{{5'000, P2pkhScript(HashOf(7))}};
    const std::string own_id = TxidOf(SerializeTx(inputs, outputs, false));
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        sandbox_.ClearFaults();
        sandbox_.ClearRequests();
        Answer(Service::kRelay, row.relay);
        Answer(Service::kChain, row.chain, "/tx/raw");
        Answer(Service::kArc, row.arc.empty() ? "200 {}" : row.arc);
        if (row.visible) Answer(Service::kChain, "200 " + std::string(200, '0'), "/" + own_id + "/hex");

        const std::string sent_as = row.text == own ? own_id : row.text == other ? kOther : "";
        std::string txid;
        {
            const WalletLock lock(wallet_mutex);
            last_broadcast_txid.clear();
            EXPECT_EQ(BroadcastTx(inputs, outputs, HashOf(9), txid),
                      sent_as.empty() ? row.text : "success: " + sent_as);
            EXPECT_EQ(last_broadcast_txid, sent_as);
            EXPECT_EQ(IsSpent(inputs[0].txid, inputs[0].vout), !sent_as.empty());
            ClearUtxoState();
        }
        EXPECT_EQ(txid, own_id);
        WaitForWorkers();
        EXPECT_EQ(std::ranges::count(sandbox_.Requests(Service::kChain), "POST /v1/bsv/main/tx/raw"), 1)
            << "the public chain gets every transaction";
        EXPECT_EQ(sandbox_.Requests(Service::kArc).empty(), row.arc.empty());
    }

    std::string txid = "left from before";
    SpendInput bad = SomeInput();
    bad.txid = "12";
    EXPECT_EQ(BroadcastTx(std::span(&bad, 1), outputs, HashOf(9), txid), "error: serialize failed.");
    EXPECT_EQ(txid, "");
}

TEST_F(Broadcast, ArcAnswers) {
    const struct {
        const char* body;
        bool ok;
        const char* error;
    } rows[] = {
        {R"({})", true, ""},
        {R"({"txStatus":"SEEN_ON_NETWORK","extraInfo":"","txid":"short"})", true, ""},
        {R"({"txStatus":"REJECTED"})", false, "REJECTED"},
        {R"({"txStatus":"DOUBLE_SPEND_ATTEMPTED","extraInfo":""})", false, "DOUBLE_SPEND_ATTEMPTED"},
        {R"({"txStatus":"REJECTED","extraInfo":"why"})", false, "why"},
        {R"({"txStatus":"STORED","extraInfo":"so missing inputs it is"})", false, "so missing inputs it is"},
        {R"({"txStatus":"SEEN_ON_NETWORK","extraInfo":null,"txid":null})", true, ""},
        {R"({"txStatus":"REJECTED","extraInfo":null})", false, "REJECTED"},
        {R"({"extraInfo":7})", false, R"({"extraInfo":7})"},
        {R"({"txid":7})", false, R"({"txid":7})"},
        {R"([])", false, "[]"},
        {"taken, thanks", false, "taken, thanks"},
        {"", false, "bad arc response"},
    };
    std::string error = "left from before";
    const auto submit = [&](const std::string& reply, const std::string& own_id) {
        sandbox_.ClearFaults();
        Answer(Service::kArc, reply);
        return ArcSubmit("00", own_id, error);
    };
    for (const auto& row : rows) {
        EXPECT_EQ(submit(std::string("200 ") + row.body, kOther), row.ok) << row.body;
        EXPECT_EQ(error, row.error) << row.body;
    }
    EXPECT_FALSE(submit("465 fee too low", kOther));
    EXPECT_EQ(error, "HTTP 465 – fee too low");
    EXPECT_FALSE(submit("200 {}", "no id"));
    EXPECT_EQ(error, "arc did not return a txid");
}

TEST(RecordSentTx, WhatIsSentIsRememberedAsSpentAndItsOwnOutputsAsPending) {
    const WalletFixture fixture("", /*last_receive=*/2);
    const WalletLock lock(wallet_mutex);
    ASSERT_TRUE(fixture.loaded);

    Hash160 change{}, first{}, identity{};  // `first`: of receive index 0, whose key an input brings along
    SecretString first_priv;
    std::string first_pub, first_address;
    ASSERT_TRUE(DeriveAtPath(ReceivePath(0), first_priv, first_pub, first_address));
    ASSERT_TRUE(DecodeAddress(wallet_keys.address, change) && DecodeAddress(first_address, first) &&
                DecodeAddress(wallet_keys.identity_address, identity));

    SpendInput input = SomeInput();
    input.priv = first_priv;
    input.pub = first_pub;
    input.hash = first;
    AddToCache(first_address, {input.txid, input.vout, input.value});
    pending_outputs.push_back({input.txid, input.vout, input.value, {}, "", first});

    ByteBuffer odd_form = P2pkhScript(change);
    odd_form.push_back(0);
    ByteBuffer other_opcode = P2pkhScript(change);
    other_opcode.back() = 0;
    const std::vector<PayOutput> outputs{{2'000, P2pkhScript(HashOf(1))},  // foreign
                                         {0, DataCarrierScript("row")},    // data
                                         {0, P2pkhScript(change)},         // nothing in it
                                         {700, odd_form},
                                         {700, other_opcode},
                                         {1, P2pkhScript(identity)},
                                         {400, P2pkhScript(first)},
                                         {5'000, P2pkhScript(change)}};
    for (int twice = 0; twice < 2; ++twice) RecordSentTx(std::span(&input, 1), outputs, kOther, change);

    EXPECT_EQ(last_recorded_txid, kOther);
    EXPECT_TRUE(IsSpent(input.txid, input.vout));
    EXPECT_TRUE(FileExists(fixture.StorePath("/ord_snap/") + kTestWalletId + "_spent.json"));

    const struct {
        Utxo output;
        std::string address;
        SecretString priv;
    } expected[] = {{{kOther, 5, 1}, wallet_keys.identity_address, wallet_keys.priv},
                    {{kOther, 6, 400}, first_address, first_priv},
                    {{kOther, 7, 5'000}, wallet_keys.address, wallet_keys.priv}};
    const auto same = [](const auto& a, const auto& b) {
        return a.txid == b.txid && a.vout == b.vout && a.value == b.value;
    };
    ASSERT_EQ(pending_outputs.size(), std::size(expected));
    for (std::size_t i = 0; i < std::size(expected); ++i) {
        EXPECT_TRUE(same(pending_outputs[i], expected[i].output)) << i;
        EXPECT_TRUE(pending_outputs[i].priv == expected[i].priv) << i;
        const UtxoCacheEntry* entry = FindCacheEntry(expected[i].address);
        ASSERT_TRUE(entry != nullptr && entry->utxos.size() == 1) << i;  // the spent coin has gone from it
        EXPECT_TRUE(same(entry->utxos[0], expected[i].output)) << i;
    }
    RecordSentTx({}, {}, "no id", change);
    EXPECT_EQ(last_recorded_txid, kOther);
}

}  // namespace
}  // namespace brickfall
