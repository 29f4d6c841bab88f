#include "wallet/broadcast.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "base/files.h"
#include "base/workers.h"
#include "net/http_client.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/key_derivation.h"
#include "wallet/ov_pouch_wallet.h"
#include "wallet/spend_guard.h"
#include "wallet/utxo_discovery.h"

namespace brickfall {
namespace {

using sandbox::Fault;
using sandbox::FaultKind;
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
    void Answer(Service service, int status, const std::string& body, const std::string& path = "") {
        Fault fault;
        fault.kind = FaultKind::kReply;
        fault.status = status;
        fault.body = body;
        fault.path_contains = path;
        sandbox_.AddFault(service, fault);
    }

    SandboxFixture services_;
    Sandbox& sandbox_ = services_.box;
    TempUserData user_data_;
    ManualClock clock_;
};

TEST_F(Broadcast, DecidesFromTheAnswersWhetherItWentOut) {
    struct Reply {
        int status;
        std::string body;
    };
    struct Row {
        const char* why;
        Reply relay;
        Reply chain;
        bool visible;
        Reply arc;
        std::string text;  // "OWN" stands for the transaction's own id
        bool asks_arc;
    };
    const Reply none{500, ""};
    const std::string failed = "error: broadcast failed: ";
    const std::string unconfirmed = "error: broadcast did not confirm. Wait a few seconds and try again.";
    const std::string long_words(121, 'x');
    const std::string own = "success: OWN";
    const std::string other = "success: " + kOther;
    const Row rows[] = {
        {"relay says yes", {200, R"({"ok":true})"}, none, false, none, own, false},
        {"relay answers no JSON", {200, "<html>welcome"}, none, false, none, own, false},
        {"relay's ok is no boolean", {201, R"({"ok":"false"})"}, none, false, none, own, false},
        {"relay's root is no object", {200, "[false]"}, none, false, none, own, false},
        {"quoted id, newline",
         {200, R"({"ok":false})"},
         {200, "\"" + kOther + "\"\n"},
         false,
         none,
         other,
         false},
        {"all that is stripped", none, {200, " \n\"" + kOther + "\"\r\n \""}, false, none, other, false},
        {"a string of JSON", none, {200, "\r\"" + kOther + "\""}, false, none, other, false},
        {"an object with the id", none, {200, R"({"txid":")" + kOther + "\"}"}, false, none, other, false},
        {"an object without",
         none,
         {200, R"({"result":")" + kOther + "\"}"},
         false,
         none,
         unconfirmed,
         false},
        {"the same, seen", none, {200, R"({"result":")" + kOther + "\"}"}, true, none, own, false},
        {"the id is a number", none, {200, R"({"txid":5})"}, false, none, unconfirmed, false},
        {"64 characters, no id", none, {200, std::string(64, 'z')}, true, none, own, false},
        {"nothing at all", none, {200, ""}, false, none, unconfirmed, false},
        {"known and seen", none, {400, "257: txn-already-known"}, true, none, own, false},
        {"known, not seen",
         none,
         {400, "257: txn-already-known"},
         false,
         none,
         failed + "HTTP 400 – 257: txn-already-known",
         false},
        {"had already, seen", none, {500, "we already have it"}, true, none, own, false},
        {"conflict, seen", none, {500, "258: txn-mempool-conflict"}, true, none, own, false},
        {"conflict, not seen",
         none,
         {500, "258: txn-mempool-conflict"},
         false,
         none,
         failed + "HTTP 500 – 258: txn-mempool-conflict",
         false},
        {"other words, though seen",
         none,
         {500, "Transaction already in the mempool"},
         true,
         none,
         failed + "HTTP 500 – Transaction already in the mempool",
         false},
        {"missing, ARC takes it",
         none,
         {400, "Missing inputs"},
         false,
         {200, R"({"txid":")" + kOther + "\"}"},
         own,
         true},
        {"missing, ARC refuses",
         none,
         {400, "bad-txns-inputs-missingorspent"},
         false,
         {200, R"({"txStatus":"REJECTED","extraInfo":"not these words"})"},
         failed + "HTTP 400 – bad-txns-inputs-missingorspent",
         true},
        {"the case of the words counts",
         none,
         {400, "MISSING INPUTS"},
         false,
         {200, "{}"},
         failed + "HTTP 400 – MISSING INPUTS",
         false},
        {"words past the part that is shown",
         none,
         {400, long_words + "Missing inputs"},
         false,
         {200, "{}"},
         failed + "HTTP 400 – " + long_words.substr(1),
         false},
        {"an HTML page", none, {502, "<html>Missing inputs</html>"}, false, none, failed + "HTTP 502", false},
        {"limited", none, {429, ""}, false, none, failed + kRateLimitText, false},
    };
    const std::vector<SpendInput> inputs{SomeInput()};
    const std::vector<PayOutput> outputs{{5'000, P2pkhScript(HashOf(7))}};
    const std::string own_id = TxidOf(SerializeTx(inputs, outputs, false));
    for (const Row& row : rows) {
        SCOPED_TRACE(row.why);
        sandbox_.ClearFaults();
        sandbox_.ClearRequests();
        Answer(Service::kRelay, row.relay.status, row.relay.body);
        Answer(Service::kChain, row.chain.status, row.chain.body, "/tx/raw");
        Answer(Service::kArc, row.arc.status, row.arc.body);
        if (row.visible) Answer(Service::kChain, 200, std::string(200, '0'), "/" + own_id + "/hex");

        std::string text = row.text;
        if (const auto at = text.find("OWN"); at != std::string::npos) text.replace(at, 3, own_id);
        std::string txid;
        {
            const WalletLock lock(wallet_mutex);
            last_broadcast_txid.clear();
            EXPECT_EQ(BroadcastTx(inputs, outputs, HashOf(9), txid), text);
            const bool sent = text.starts_with("success");
            EXPECT_EQ(last_broadcast_txid, sent ? text.substr(9) : "");
            EXPECT_EQ(IsSpent(inputs[0].txid, inputs[0].vout), sent);
            ClearUtxoState();
        }
        EXPECT_EQ(txid, own_id);
        WaitForWorkers();
        const auto asked = sandbox_.Requests(Service::kChain);
        EXPECT_TRUE(std::any_of(asked.begin(), asked.end(), [](const std::string& request) {
            return request == "POST /v1/bsv/main/tx/raw";
        })) << "the public chain gets every transaction";
        EXPECT_EQ(!sandbox_.Requests(Service::kArc).empty(), row.asks_arc);
    }

    std::string txid = "left from before";
    SpendInput bad = SomeInput();
    bad.txid = "12";
    EXPECT_EQ(BroadcastTx(std::span(&bad, 1), outputs, HashOf(9), txid), "error: serialize failed.");
    EXPECT_EQ(txid, "");
}

TEST_F(Broadcast, ArcAnswers) {
    struct Row {
        const char* body;
        bool ok;
        const char* error;
        int status = 200;
    };
    const Row rows[] = {
        {R"({})", true, ""},
        {R"({"txStatus":"SEEN_ON_NETWORK","extraInfo":"","txid":"short"})", true, ""},
        {R"({"txStatus":"REJECTED"})", false, "REJECTED"},
        {R"({"txStatus":"DOUBLE_SPEND_ATTEMPTED","extraInfo":""})", false, "DOUBLE_SPEND_ATTEMPTED"},
        {R"({"txStatus":"REJECTED","extraInfo":"why"})", false, "why"},
        {R"({"txStatus":"STORED","extraInfo":"so missing inputs it is"})", false, "so missing inputs it is"},
        {R"({"extraInfo":null})", false, R"({"extraInfo":null})"},
        {R"({"txid":7})", false, R"({"txid":7})"},
        {R"([])", false, "[]"},
        {"taken, thanks", false, "taken, thanks"},
        {"", false, "bad arc response"},
        {"fee too low", false, "HTTP 465 – fee too low", 465},
    };
    for (const Row& row : rows) {
        sandbox_.ClearFaults();
        Answer(Service::kArc, row.status, row.body);
        std::string error = "left from before";
        EXPECT_EQ(ArcSubmit("00", kOther, error), row.ok) << row.body;
        EXPECT_EQ(error, row.error) << row.body;
    }
    sandbox_.ClearFaults();
    Answer(Service::kArc, 200, "{}");
    std::string error;
    EXPECT_FALSE(ArcSubmit("00", "no id", error));
    EXPECT_EQ(error, "arc did not return a txid");
}

TEST(RecordSentTx, WhatIsSentIsRememberedAsSpentAndItsOwnOutputsAsPending) {
    const WalletFixture fixture("", /*last_receive=*/2);
    const WalletLock lock(wallet_mutex);
    ASSERT_TRUE(fixture.loaded);

    Hash160 change{};
    Hash160 first{};  // of receive index 0, whose key an input brings along
    Hash160 identity{};
    SecretString first_priv;
    std::string first_pub;
    std::string first_address;
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
    const auto spent_file = ReadFile(fixture.StorePath("/ord_snap/") + kTestWalletId + "_spent.json");
    ASSERT_TRUE(spent_file.has_value());
    EXPECT_NE(spent_file->find(input.txid + ":3"), std::string::npos);

    struct Expected {
        uint32_t vout;
        int64_t value;
        std::string address;
        SecretString priv;
    };
    const Expected expected[] = {{5, 1, wallet_keys.identity_address, wallet_keys.priv},
                                 {6, 400, first_address, first_priv},
                                 {7, 5'000, wallet_keys.address, wallet_keys.priv}};
    ASSERT_EQ(pending_outputs.size(), std::size(expected));
    for (std::size_t i = 0; i < std::size(expected); ++i) {
        EXPECT_EQ(pending_outputs[i].txid, kOther);
        EXPECT_EQ(pending_outputs[i].vout, expected[i].vout);
        EXPECT_EQ(pending_outputs[i].value, expected[i].value);
        EXPECT_TRUE(pending_outputs[i].priv == expected[i].priv) << i;
        std::vector<Utxo> cached;
        bool valid = false;
        ASSERT_TRUE(CachedUtxos(expected[i].address, cached, valid)) << i;
        ASSERT_EQ(cached.size(), 1u) << i;  // the spent coin has gone from it
        EXPECT_EQ(cached[0].vout, expected[i].vout);
    }

    RecordSentTx({}, std::span(outputs).first(2), std::string(64, 'd'), change);
    EXPECT_EQ(pending_outputs.size(), std::size(expected)) << "foreign and data outputs are nobody's change";
    RecordSentTx({}, {}, "no id", change);
    EXPECT_EQ(last_recorded_txid, std::string(64, 'd'));
}

}  // namespace
}  // namespace brickfall
