#include "board/local_scores.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/manual_clock.h"
#include "tests/support/signed_rows.h"
#include "tests/support/wallet_fixture.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr char kAda[] = "ada@orvane.test";

ScoreRow Row(std::string paymail, std::string pay_addr, int64_t score, std::string txid) {
    ScoreRow row;
    row.handle = paymail;
    row.paymail = std::move(paymail);
    row.pay_addr = std::move(pay_addr);
    row.score = score;
    row.txid = std::move(txid);
    row.game = kBoardGameId;
    return row;
}

using Shown = std::tuple<std::string, std::string, std::string, std::string, int64_t, int64_t, std::string>;

std::vector<Shown> Show(const std::vector<ScoreRow>& rows) {
    std::vector<Shown> shown;
    for (const ScoreRow& row : rows) {
        EXPECT_TRUE(!row.verified && row.pubkey.empty() && row.entry.empty());
        shown.emplace_back(row.handle, row.paymail, row.pay_addr, row.game, row.score, row.ts, row.txid);
    }
    return shown;
}

TEST(LocalScores, WhoIsTheBest) {
    struct Case {
        const char* why;
        int64_t score, ts;  // of the best so far, 0: there is none
        const char* txid;
        int64_t candidate_score, candidate_ts;
        bool taken;
    };
    const Case cases[] = {
        {"the first", 0, 0, "", 1, 0, true},
        {"no points", 0, 0, "", 0, 9, false},
        {"higher", 900, 100, "t", 901, 1, true},
        {"lower", 900, 100, "", 899, 200, false},
        {"equal and later", 900, 100, "t", 900, 101, true},
        {"equal at the same time", 900, 100, "t", 900, 100, false},
        {"equal and earlier", 900, 100, "t", 900, 50, false},
        {"equal to one without a record", 900, 100, "", 900, 50, true},
        {"limits", INT64_MAX, INT64_MAX, "t", INT64_MAX, INT64_MAX, false},
    };
    for (const Case& c : cases) {
        ScoreRow best = Row("best", "", c.score, c.txid),
                 candidate = Row("candidate", "", c.candidate_score, "");
        best.ts = c.ts;
        candidate.ts = c.candidate_ts;
        bool has_best = c.score > 0;
        ConsiderBest(best, has_best, candidate);
        EXPECT_EQ(best.paymail, c.taken ? "candidate" : "best") << c.why;
        EXPECT_EQ(has_best, c.score > 0 || c.taken) << c.why;
    }
}

// The rule of a local row, by going through all rows.
void AddBySearch(std::vector<ScoreRow>& rows, const LocalScore& local) {
    if (local.score < 1) return;
    for (const ScoreRow& row : rows) {
        const bool same_player = (!local.paymail.empty() && row.paymail == local.paymail) ||
                                 (!local.pay_addr.empty() && row.pay_addr == local.pay_addr);
        if (local.txid.empty() ? row.score == local.score && same_player : row.txid == local.txid) return;
    }
    rows.push_back(Row(local.paymail, local.pay_addr, local.score, local.txid));
}

TEST(LocalScores, TheMergedWeekIsThatOfASearchAndAStableSort) {
    const ManualClock clock(kClockStart);
    const auto local_scores = [] {
        const auto few = [](const char* a, const char* b) {
            return rc::gen::element(std::string(), std::string(a), std::string(b));
        };
        return rc::gen::container<std::vector<LocalScore>>(rc::gen::construct<LocalScore>(
            rc::gen::element(kTestWeek, kTestWeek, kTestWeek - 604'800), rc::gen::inRange<int64_t>(-1, 5),
            few("ada", "bob"), few("1a", "1b"), few("t", "u"), rc::gen::just<int64_t>(0)));
    };
    EXPECT_TRUE(rc::check([&] {
        BoardSnapshot snapshot;
        snapshot.week_scores = *local_scores();
        std::vector<ScoreRow> rows;
        for (const LocalScore& chain : *local_scores()) {
            rows.push_back(Row(chain.paymail, chain.pay_addr, chain.score, chain.txid));
        }
        std::vector<ScoreRow> expected = rows, one_by_one = rows;
        for (const LocalScore& local : snapshot.week_scores) {
            if (local.week != kTestWeek) continue;
            AddBySearch(expected, local);
            AddLocalRow(one_by_one, local.paymail, local.pay_addr, local.score, local.txid);
        }
        RC_ASSERT(Show(one_by_one) == Show(expected));
        std::stable_sort(expected.begin(), expected.end(),
                         [](const ScoreRow& a, const ScoreRow& b) { return a.score > b.score; });
        if (expected.size() > 20) expected.resize(20);
        MergeWeek(snapshot, rows);
        RC_ASSERT(Show(rows) == Show(expected));
    }));
}

class RecordedScores : public testing::Test {
  protected:
    void Record(int64_t score, std::string_view txid) {
        RecordLocalScore(doc_, score, txid, [this] { ++saves_; });
    }

    json Entry(int64_t score, std::string txid, int64_t ts, int64_t week = kTestWeek) {
        return {{"week", week}, {"score", score},      {"paymail", kAda}, {"pay_addr", address_},
                {"txid", txid}, {"game", "brickfall"}, {"ts", ts}};
    }

    WalletFixture wallet_{"ada"};
    std::string address_ = wallet_.ReceiveAddress(0);
    json doc_ = {{"music", true}};
    int saves_ = 0;
};

TEST_F(RecordedScores, WhichEntryIsTheRuns) {
    const std::string bob = "bob@orvane.test";
    struct Case {
        const char* why;
        json change;  // to the entry of an unrecorded run of 500 by this wallet
        bool found;
    };
    const Case cases[] = {
        {"its own", json::object(), true},
        {"the name moved to another address", {{"pay_addr", "1other"}}, true},
        {"the address has another name", {{"paymail", bob}}, true},
        {"nobody's", {{"paymail", ""}, {"pay_addr", ""}}, true},
        {"somebody else's", {{"paymail", bob}, {"pay_addr", "1other"}}, false},
        {"recorded already", {{"txid", "u"}}, false},
        {"this very record", {{"txid", "t"}, {"score", 1}, {"paymail", bob}, {"pay_addr", "1other"}}, true},
        {"another score", {{"score", 501}}, false},
        {"a score with a fraction part", {{"score", 500.0}}, false},
        {"a number for an id counts as none", {{"txid", 7}}, true},
        {"numbers for names count as none", {{"paymail", 7}, {"pay_addr", nullptr}}, true},
        {"another week", {{"week", kTestWeek - 604'800}}, false},
        {"a week beyond the integers", {{"week", UINT64_MAX}}, false},
    };
    Record(0, "t");
    EXPECT_EQ(saves_, 0);
    EXPECT_EQ(doc_, (json{{"music", true}}));
    for (const Case& c : cases) {
        json former = Entry(500, "", 1);
        former.update(c.change);
        doc_ = {{"week_scores", {7, "text", json::array(), nullptr, former}}};
        Record(500, "t");
        json expected = json::array();
        if (!c.found && former["week"] == kTestWeek) expected.push_back(former);
        expected.push_back(Entry(500, "t", kClockStart));
        EXPECT_EQ(doc_["week_scores"], expected) << c.why;
    }
    EXPECT_EQ(saves_, std::ssize(cases));
}

TEST_F(RecordedScores, TheBestEver) {
    const json now = Entry(500, "t", kClockStart);
    const json higher = {{"score", 501}, {"txid", ""}};
    const json recorded = {{"score", 500}, {"txid", "u"}};
    const std::pair<json, json> rows[] = {
        {nullptr, now},
        {{{"score", UINT64_MAX}}, now},
        {{{"score", 499}, {"note", "kept by nobody"}}, now},
        {higher, higher},
        {recorded, recorded},
        {{{"score", 499}, {"txid", "t"}}, now},
        {{{"score", 500}, {"txid", ""}, {"ts", 3}}, {{"score", 500}, {"txid", "t"}, {"ts", 3}}},
    };
    for (const auto& [former, after] : rows) {
        doc_ = {{"best_ever", former}};
        Record(500, "t");
        EXPECT_EQ(doc_["best_ever"], after) << former;
    }
}

TEST(LocalScores, TheBestIsLookedForEverywhere) {
    const ManualClock clock;
    const auto score = [](int64_t points, const char* txid) {
        return LocalScore{kTestWeek, points, "", "", txid, points};
    };
    const struct {
        BoardSnapshot snapshot;
        int64_t on_chain;  // 0: nothing
        std::string best;
    } rows[] = {
        {{}, 0, ""},
        {{}, 8, "chain"},
        {{{score(7, "week"), score(9, "of the week"), score(8, "w")}, score(8, "ever"), 8, "run"},
         8,
         "of the week"},
        {{{score(8, "week")}, score(9, "ever"), 8, "run"}, 8, "ever"},
        {{{score(8, "week")}, score(8, "ever"), 9, "run"}, 0, "run"},
    };
    for (const auto& [snapshot, on_chain, wanted] : rows) {
        ScoreRow best = Row("", "", on_chain, on_chain > 0 ? "chain" : "");
        bool has_best = on_chain > 0;
        MergeBest(snapshot, best, has_best);
        EXPECT_EQ(best.txid, wanted);
        EXPECT_EQ(has_best, !wanted.empty()) << wanted;
    }
}

TEST_F(RecordedScores, DamagedDocumentsReadAsEmpty) {
    json nested = json::array();
    for (int depth = 0; depth < 1'000'000; ++depth) nested = json::array({std::move(nested)});
    RunControl run;
    run.final_score = 1;  // the least that counts
    run.record_txid = "r";
    doc_ = {{"week_scores", json::array({nullptr, true, 7, "text", json::array({1}), {{"week", 9}}})},
            {"best_ever", {{"score", 1.5}, {"paymail", false}, {"txid", "b"}}}};
    doc_["week_scores"].back()["foreign"] = std::move(nested);  // a copy of it would end the stack
    const BoardSnapshot snapshot = TakeBoardSnapshot(doc_, run);
    ASSERT_EQ(snapshot.week_scores.size(), 1u);
    EXPECT_EQ(snapshot.week_scores[0].week, 9);
    EXPECT_EQ(snapshot.week_scores[0].score, 0);
    ASSERT_TRUE(snapshot.best_ever);
    EXPECT_EQ(snapshot.best_ever->score, 0);
    EXPECT_EQ(snapshot.best_ever->paymail, "");
    EXPECT_EQ(snapshot.best_ever->txid, "b");

    // The run that has just ended counts even when nothing could be stored.
    std::vector<ScoreRow> rows;
    ScoreRow best;
    bool has_best = false;
    MergeWeek(snapshot, rows);
    MergeBest(snapshot, best, has_best);
    EXPECT_EQ(Show(rows), Show({Row(kAda, address_, 1, "r")}));
    for (ScoreRow& row : rows) row.ts = kClockStart;
    EXPECT_EQ(Show({best}), Show(rows));

    for (const json& document : {json(nullptr), json(7), json{{"week_scores", 7}, {"best_ever", 7}}}) {
        EXPECT_TRUE(TakeBoardSnapshot(document, {}).week_scores.empty()) << document;
        doc_ = document;
        Record(5, "");
        EXPECT_EQ(doc_, (json{{"week_scores", {Entry(5, "", kClockStart)}},
                              {"best_ever", Entry(5, "", kClockStart)}}))
            << document;
    }
}

}  // namespace
}  // namespace brickfall
