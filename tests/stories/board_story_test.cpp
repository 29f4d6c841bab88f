// What the board shows when services fail, lie, lag or know more than they should, and how the chain's rows
// and this cabinet's own meet.
#include <gtest/gtest.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/workers.h"
#include "board/board_load.h"
#include "deployment/deployment.h"
#include "game/flows.h"
#include "messages/row.h"
#include "messages/signing.h"
#include "messages/verification.h"
#include "tests/support/manual_clock.h"
#include "tests/support/signed_rows.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/payment/pay_drivers.h"

namespace brickfall {
namespace {

using nlohmann::json;
using sandbox::Fault;
using sandbox::FaultKind;
using sandbox::Service;

constexpr char kNoneYet[] = "No scores posted yet.";
constexpr char kIndexerList[] = "/oi/oracle/brickfall/txids?limit=2000&offset=0";
const std::string kWatch = std::string("/v1/bsv/main/address/") + kArcadeWatchAddress;

Fault Drop(std::string path = "") { return {FaultKind::kDrop, 0, "", "", {}, 0, -1, std::move(path)}; }

std::string ListBody(const std::vector<std::string>& txids) { return json{{"txids", txids}}.dump(); }

// A picture that tells how long its file is and how it begins.
std::optional<Image> TellFile(const std::string& file, int) {
    return Image{static_cast<int>(file.size()), 1, {static_cast<uint8_t>(file[0])}};
}

// The services, and a cabinet with ada's wallet.
struct BoardStory {
    BoardStory() {
        EXPECT_TRUE(wallet.loaded);
        ClearIdentityKeyCache();
    }
    ~BoardStory() { ClearIdentityKeyCache(); }

    TestPlayer Publish(const TestPlayer& player) {
        box.Publish(IdentityOf(player));
        return player;
    }

    void List(const std::vector<std::string>& txids) {
        box.AddFault(Service::kIndexer, ReplyTo(kIndexerList, ListBody(txids)));
    }

    // The services hold a transaction with this payload.
    void Hold(const std::string& txid, const std::string& payload, Service service = Service::kIndexer) {
        box.AddFault(service, ReplyTo("/tx/" + txid, TransactionBody(txid, payload)));
    }

    BoardResult Load() {
        std::unique_ptr<BoardResult> got;
        BoardWorker(TakeBoardSnapshot(doc, run), TellFile, [&got](auto result) { got = std::move(result); });
        EXPECT_TRUE(got);
        return got ? std::move(*got) : BoardResult();
    }

    void EndRun(int64_t score) {
        run.final_score = score;
        run.record_txid.clear();
        RecordLocalScore(doc, score, "", [] {});
    }

    void Recorded(const std::string& txid) {
        run.record_txid = txid;
        RecordLocalScore(doc, run.final_score, txid, [] {});
    }

    std::vector<std::string> Asked(Service service) {
        std::vector<std::string> targets = box.Requests(service);
        for (std::string& target : targets) target.erase(0, 4);  // "GET "
        return targets;
    }

    SandboxFixture services;
    sandbox::Sandbox& box = services.box;
    WalletFixture wallet{"ada"};
    json doc = json::object();
    RunControl run;
};

std::vector<std::string> Ids(const std::vector<ScoreRow>& rows) {
    std::vector<std::string> ids;
    for (const ScoreRow& row : rows) ids.push_back(row.txid);
    return ids;
}

TEST(BoardStory, WhereTheIdsComeFrom) {
    BoardStory story;
    const std::string a = TestTxid(1), b = TestTxid(2), c = TestTxid(3);
    const TestPlayer bob = story.Publish(MakePlayer("bob"));
    // The services' own shapes.
    const auto history = [](const json& result) {
        return json{{"address", kArcadeWatchAddress}, {"result", result}, {"error", ""}}.dump();
    };
    const json unspent = {{{"height", 639302}, {"tx_pos", 0}, {"tx_hash", b}, {"value", 1}}};
    const json confirmed = {{{"tx_hash", b}, {"height", 639302}}, {{"tx_hash", a}, {"height", 639301}}};
    const std::string odd_items =
        json{{"txids", {"short", 7, nullptr, {{"tx_hash", b}}, {{"txid", a}}, b}}, {"result", {c}}}.dump();
    const auto list = [](const std::string& body, int status = 200) {
        return ReplyTo(kIndexerList, body, status);
    };
    const std::string first = "/unconfirmed/history?limit=50", second = "/unspent",
                      third = "/confirmed/history?limit=50";
    struct Row {
        const char* why;
        Fault indexer;
        std::vector<std::string> read;
        bool chain_asked = true;
        std::vector<Fault> listings = {};  // those of the chain that do not work
    };
    const Row rows[] = {
        {"the indexer knows", list(ListBody({b, a})), {b, a}, false},
        {"and knows nothing", list(ListBody({})), {}, false},
        {"and has items of other shapes", list(odd_items), {b, a, c}, false},
        {"an array", list(json{a}.dump()), {c, b, a}},
        {"no list in it", list(history({a})), {c, b, a}},
        {"another type of list", list(R"({"txids":{}})"), {c, b, a}},
        {"an HTML page", list("<html></html>"), {c, b, a}},
        {"unknown", list(ListBody({a}), 404), {c, b, a}},
        {"down", Drop(kIndexerList), {c, b, a}},
        {"an address never used",
         Drop(kIndexerList),
         {},
         true,
         {ReplyTo(first, "", 404), ReplyTo(second, "[]"), ReplyTo(third, "", 404)}},
        {"one listing fails", Drop(kIndexerList), {c, b, a}, true, {ReplyTo(second, "oops", 500)}},
        {"only the second answers", Drop(kIndexerList), {b}, true, {Drop(first), ReplyTo(third, "]moo[")}},
        {"all is down", Drop(kIndexerList), {}, true, {Drop(first), Drop(second), Drop(third)}},
    };
    for (const Row& row : rows) {
        story.box.ClearFaults();
        story.box.ClearRequests();
        story.box.AddFault(Service::kIndexer, row.indexer);
        for (const Fault& fault : row.listings) story.box.AddFault(Service::kChain, fault);
        story.box.AddFault(Service::kChain, ReplyTo(first, history({{{"tx_hash", c}}})));
        story.box.AddFault(Service::kChain, ReplyTo(second, unspent.dump()));
        story.box.AddFault(Service::kChain, ReplyTo(third, history(confirmed)));
        for (const std::string& txid : {a, b, c}) story.Hold(txid, DumpRow(SignedScore(bob, 7, kClockStart)));
        const BoardResult board = story.Load();

        std::vector<std::string> expected = {kIndexerList};
        for (const std::string& txid : row.read) expected.push_back("/oi/tx/" + txid);
        EXPECT_EQ(story.Asked(Service::kIndexer), expected) << row.why;
        expected.clear();
        if (row.chain_asked) expected = {kWatch + first, kWatch + second, kWatch + third};
        EXPECT_EQ(story.Asked(Service::kChain), expected) << row.why;
        EXPECT_EQ(Ids(board.rows), row.read) << row.why;  // equal in all: in the order found
        EXPECT_EQ(board.message, row.read.empty() ? kNoneYet : "") << row.why;
        EXPECT_EQ(board.week_label, kTestWeekLabel) << row.why;
    }
}

TEST(BoardStory, OnlySoundRowsStand) {
    BoardStory story;
    const TestPlayer bob = story.Publish(MakePlayer("bob"));
    // One load a row: the score tells whether it stands, 0 that it does not.
    const auto expect = [&](const std::string& payload, int64_t week_score, bool is_of_another_week = false) {
        SCOPED_TRACE(payload.substr(0, 500));
        story.box.ClearFaults();
        story.List({TestTxid(1)});
        story.Hold(TestTxid(1), payload);
        const BoardResult board = story.Load();
        ASSERT_EQ(board.rows.size(), week_score == 0 ? 0u : 1u);
        if (week_score != 0) {
            EXPECT_EQ(board.rows[0].score, week_score);
            EXPECT_EQ(board.rows[0].pubkey, bob.public_hex);
            EXPECT_EQ(board.rows[0].handle, "bob");
            EXPECT_TRUE(board.rows[0].verified);
        }
        EXPECT_EQ(board.has_best, week_score != 0 || is_of_another_week);
        EXPECT_EQ(board.message, is_of_another_week ? "No scores for this week yet."
                                 : week_score == 0  ? kNoneYet
                                                    : "");
    };
    // A null takes the field away.
    const auto row = [&](const json& change, bool sign) {
        json fields = SignedScore(bob, 500, kClockStart);
        fields.merge_patch(change);
        if (sign) SignRow(bob, fields);
        return DumpRow(fields);
    };
    const std::pair<json, int64_t> signed_rows[] = {
        {json::object(), 500},
        {{{"protocol", "Cairn"}}, 0},
        {{{"game", "gravity"}, {"score", 9'000}}, 0},  // the family's other game
        {{{"game", "BRICKFALL"}}, 500},
        {{{"game", nullptr}}, 500},
        {{{"game", 7}}, 500},
        {{{"tape_hash", nullptr}}, 500},
        {{{"entry", nullptr}, {"pay_addr", 5}}, 500},
        {{{"score", "42"}}, 42},
        {{{"score", 7.9}}, 7},
        {{{"score", INT64_MAX}}, INT64_MAX},
        {{{"score", UINT64_MAX}}, 0},
        {{{"score", 1e300}}, 0},
        {{{"score", 0}}, 0},
        {{{"score", INT64_MIN}}, 0},
        {{{"score", nullptr}}, 0},
        {{{"ts", INT64_MAX}}, 500},
        {{{"ts", 0}}, 0},
    };
    for (const auto& [change, score] : signed_rows) expect(row(change, /*sign=*/true), score);
    for (const int64_t week : {kTestWeek - 604'800, kTestWeek + 1}) {
        expect(row({{"week", week}, {"score", 600}}, /*sign=*/true), 0, /*is_of_another_week=*/true);
    }
    const json bent_rows[] = {{{"score", 501}},
                              {{"week", kTestWeek + 604'800}},
                              {{"tape_hash", std::string(64, '8')}},
                              {{"pay_addr", MakePlayer("cyd").pay_addr}},
                              {{"sig", nullptr}}};
    for (const json& bent : bent_rows) expect(row(bent, /*sign=*/false), 0);
    expect(row({{"tape", "00"}, {"extra", json::array()}}, /*sign=*/false), 500);  // what is not signed
    expect(DumpRow(SignedScore(MakePlayer("nobody"), 500, kClockStart)), 0);
    expect("{\"type\":\"arcade_score\",", 0);
    const std::size_t frame = row({{"tape", ""}}, /*sign=*/false).size();
    for (const auto& [size, score] : {std::pair(65'535u, 500), {65'536u, 0}}) {  // the largest push
        expect(row({{"tape", std::string(size - frame, '0')}}, /*sign=*/false), score);
    }
}

TEST(BoardStory, TwoHundredFiftyOfTwoThousandAndEveryTenthFails) {
    BoardStory story;
    std::vector<TestPlayer> players;
    for (int i = 0; i < 25; ++i) players.push_back(story.Publish(MakePlayer("player" + std::to_string(i))));
    const auto indexer_fails = [](int i) { return i % 10 == 9 || i % 10 == 4; };
    const auto chain_fails = [](int i) { return i % 10 == 9; };
    std::vector<std::string> list;
    for (int i = 0; i < 1'000; ++i) {
        const std::string txid = TestTxid(static_cast<uint32_t>(i));
        list.push_back(txid);
        list.push_back(TestTxid(static_cast<uint32_t>(i / 2)));  // and one that stood there before
        if (i >= 260) continue;
        const TestPlayer& player = players[static_cast<std::size_t>(i) % 25];
        const std::string payload = DumpRow(SignedScore(player, i + 1, kClockStart));
        if (indexer_fails(i)) {
            const Fault fault = i % 20 < 10 ? Drop("/tx/" + txid) : ReplyTo("/tx/" + txid, "", 500);
            story.box.AddFault(Service::kIndexer, fault);
        } else {
            story.Hold(txid, payload);
        }
        if (chain_fails(i)) {
            story.box.AddFault(Service::kChain, ReplyTo("/tx/" + txid, "Too Many Requests", 429));
        } else {
            story.Hold(txid, payload, Service::kChain);
        }
    }
    story.List(list);
    const BoardResult board = story.Load();

    std::vector<std::string> shown, asked_indexer = {kIndexerList}, asked_chain;
    for (int i = 0; i < 250; ++i) {
        const std::string txid = TestTxid(static_cast<uint32_t>(i));
        asked_indexer.push_back("/oi/tx/" + txid);
        if (indexer_fails(i)) asked_chain.push_back("/v1/bsv/main/tx/" + txid);
        if (!chain_fails(i)) shown.insert(shown.begin(), txid);
    }
    shown.resize(20);
    EXPECT_EQ(Ids(board.rows), shown);
    EXPECT_EQ(board.best.score, 249) << "the 250th failed, and the 251st is not read";
    EXPECT_EQ(story.Asked(Service::kIndexer), asked_indexer);
    EXPECT_EQ(story.Asked(Service::kChain), asked_chain);
    EXPECT_EQ(story.services.Asked(Service::kPaymail, "/api/bsvalias/id/"), 25) << "one a signer";
}

TEST(BoardStory, TheHostPublishesAnotherKey) {
    BoardStory story;
    const TestPlayer former = story.Publish(MakePlayer("bob", 0));
    const TestPlayer present = MakePlayer("bob", 1);
    const std::string old_row = TestTxid(1), new_row = TestTxid(2);
    story.List({old_row, new_row});
    story.Hold(old_row, DumpRow(SignedScore(former, 500, kClockStart)));
    story.Hold(new_row, DumpRow(SignedScore(present, 400, kClockStart)));
    EXPECT_EQ(Ids(story.Load().rows), std::vector{old_row});
    story.Publish(present);
    story.wallet.clock.AdvanceMs((kIdentityKeyTtl - 1) * 1'000);
    EXPECT_EQ(Ids(story.Load().rows), std::vector{old_row}) << "the key is known for half an hour";
    story.wallet.clock.AdvanceMs(1'000);
    EXPECT_EQ(Ids(story.Load().rows), std::vector{new_row}) << "a row of the former key is nobody's now";
    story.box.AddFault(Service::kPaymail, Drop());
    EXPECT_EQ(Ids(story.Load().rows), std::vector{new_row});
    story.wallet.clock.AdvanceMs(kIdentityKeyTtl * 1'000);
    const BoardResult board = story.Load();
    EXPECT_TRUE(board.rows.empty()) << "no host, no identity";
    EXPECT_EQ(board.message, kNoneYet);
}

TEST(BoardStory, TwoPeopleRecordTheSameScore) {
    BoardStory story;
    const TestPlayer bob = story.Publish(MakePlayer("bob"));
    const TestPlayer cyd = story.Publish(MakePlayer("cyd"));
    const std::string first = TestTxid(1), second = TestTxid(2), copied = TestTxid(3);
    story.List({first, second, copied});
    story.Hold(first, DumpRow(SignedScore(bob, 500, kClockStart)));
    story.Hold(second, DumpRow(SignedScore(cyd, 500, kClockStart + 9)));
    // Somebody says bob's row once more under another name: the signature does not cover that.
    json copy = SignedScore(bob, 500, kClockStart);
    copy["handle"] = copy["actor"] = "cyd";
    story.Hold(copied, DumpRow(copy));
    story.EndRun(500);
    const BoardResult board = story.Load();
    EXPECT_EQ(Ids(board.rows), (std::vector<std::string>{second, first, ""}))
        << "the later one first, then ada's";
    EXPECT_EQ(board.best.txid, second) << "it is later than the end of the run";
}

// The run ends, is recorded, and comes back from the chain, with every service at work.
TEST(BoardStory, ALocalEntryMeetsItsChainRow) {
    BoardStory story;
    TestPlayer self = MakePlayer("ada");
    {
        const WalletLock lock(wallet_mutex);
        self.public_hex = wallet_keys.identity_pub;
    }
    story.Publish(self);
    const std::string address = story.wallet.ReceiveAddress(0);
    story.box.Fund(address, 100'000);
    story.EndRun(500);
    BoardResult board = story.Load();
    ASSERT_EQ(board.rows.size(), 1u);
    EXPECT_EQ(board.rows[0].paymail, "ada@orvane.test");
    EXPECT_EQ(board.rows[0].pay_addr, address);
    EXPECT_EQ(board.rows[0].txid, "");
    EXPECT_FALSE(board.rows[0].verified);
    EXPECT_EQ(board.message, kNoneYet) << "the chain's word; the window drops it";
    EXPECT_EQ(board.best.score, 500);
    EXPECT_EQ(board.best.ts, kClockStart);

    json row = SignedScore(self, 500, kClockStart);
    std::string error;
    row["pay_addr"] = address;
    ASSERT_TRUE(SignMessage(row, error)) << error;
    const std::string txid = FindTxid(PayArcadeScore(kArcadeWatchAddress, DumpRow(row)));
    WaitForWorkers();
    story.wallet.clock.AdvanceMs(2'000);
    story.Recorded(txid);
    EXPECT_EQ(story.doc["week_scores"].size(), 1u);

    story.List({});  // the indexer lags
    board = story.Load();
    EXPECT_EQ(Ids(board.rows), std::vector{txid});
    EXPECT_FALSE(board.rows[0].verified);
    story.box.ClearFaults();

    // From the indexer; from the chain's own listings before and after the block; from the chain alone.
    for (const std::string step : {"indexer", "unconfirmed", "confirmed", "chain alone"}) {
        SCOPED_TRACE(step);
        if (step == "unconfirmed") story.box.AddFault(Service::kIndexer, Drop("/oi/oracle/"));
        if (step == "confirmed") story.box.Mine();
        if (step == "chain alone") story.box.SetIndexerKnows(false);
        board = story.Load();
        EXPECT_EQ(Ids(board.rows), std::vector{txid});
        EXPECT_TRUE(board.rows[0].verified);
        EXPECT_EQ(board.rows[0].ts, kClockStart);
        EXPECT_EQ(board.message, "");
        EXPECT_EQ(board.best.txid, txid);
        EXPECT_FALSE(board.best.verified) << "the local entry was written later";
    }

    // Later runs: of the same score and not recorded, recorded, and better.
    story.EndRun(500);
    EXPECT_EQ(Ids(story.Load().rows), std::vector{txid});
    story.Recorded(TestTxid(1));
    EXPECT_EQ(Ids(story.Load().rows), (std::vector{txid, TestTxid(1)})) << "equal ones in the order they had";
    story.EndRun(501);
    board = story.Load();
    EXPECT_EQ(Ids(board.rows), (std::vector<std::string>{"", txid, TestTxid(1)}));
    EXPECT_EQ(board.best.score, 501);

    // A new start without a network: what the file holds.
    story.run = {};
    for (const Service service : {Service::kIndexer, Service::kChain, Service::kPaymail}) {
        story.box.AddFault(service, Drop());
    }
    board = story.Load();
    EXPECT_EQ(Ids(board.rows), (std::vector<std::string>{"", txid, TestTxid(1)}));
    EXPECT_EQ(board.best.score, 501);
    EXPECT_TRUE(board.faces.empty());
}

TEST(BoardStory, TheWeekTurnsBetweenTheEndOfARunAndItsRecord) {
    BoardStory story;
    constexpr int64_t kMonday = kTestWeek + 604'800;
    const TestPlayer ada = story.Publish(MakePlayer("ada"));
    const std::string txid = TestTxid(1);
    story.wallet.clock.AdvanceMs((kMonday - 1 - kClockStart) * 1'000);
    story.EndRun(500);
    const json row = SignedScore(ada, 500, kMonday - 1);
    EXPECT_EQ(Ids(story.Load().rows), std::vector<std::string>{""});
    story.wallet.clock.AdvanceMs(2'000);
    BoardResult board = story.Load();
    EXPECT_EQ(Ids(board.rows), std::vector<std::string>{""}) << "the run in memory, in the new week";
    EXPECT_EQ(board.week_label, "2026-W40");

    story.Recorded(txid);
    ASSERT_EQ(story.doc["week_scores"].size(), 1u) << "the entry of the former week is gone";
    EXPECT_EQ(story.doc["week_scores"][0]["week"], kMonday);
    EXPECT_EQ(story.doc["best_ever"]["ts"], kMonday - 1);
    EXPECT_EQ(story.doc["best_ever"]["txid"], txid);
    story.List({txid});
    story.Hold(txid, DumpRow(row));
    board = story.Load();
    EXPECT_EQ(Ids(board.rows), std::vector{txid}) << "the chain has it in the former week, this cabinet here";
    EXPECT_FALSE(board.rows[0].verified);
    EXPECT_EQ(board.message, "No scores for this week yet.");

    story.wallet.clock.AdvanceMs(604'800'000);
    story.run = {};
    board = story.Load();
    EXPECT_TRUE(board.rows.empty());
    EXPECT_EQ(board.best.txid, txid) << "entries of a former week count for the best";
}

TEST(BoardStory, AFaceForEachPlayerAndTheBest) {
    BoardStory story;
    std::vector<std::string> list;
    for (const std::string alias : {"bob", "bob", "bob", "cyd"}) {
        const TestPlayer player = MakePlayer(alias);
        story.box.Publish(IdentityOf(player, "https://ordinals.gorillapool.test/content/" + alias));
        story.box.AddFault(Service::kContent, ReplyTo(alias, std::string(100, alias[0])));
        const bool is_bob = alias == "bob";
        list.push_back(TestTxid(static_cast<uint32_t>(list.size())));
        const json row =
            SignedScore(player, is_bob ? 5 : 900, kClockStart, is_bob ? kTestWeek : kTestWeek - 604'800);
        story.Hold(list.back(), DumpRow(row));
    }
    story.List(list);
    const BoardResult board = story.Load();
    EXPECT_EQ(board.rows.size(), 3u);
    EXPECT_EQ(board.best.handle, "cyd");
    EXPECT_EQ(board.faces, (Faces{{"bob", {100, 1, {'b'}}}, {"cyd", {100, 1, {'c'}}}}));
    EXPECT_EQ(story.Asked(Service::kContent).size(), 2u);
}

}  // namespace
}  // namespace brickfall
