#include "board/watch_reader.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "messages/row.h"
#include "messages/verification.h"
#include "tests/support/manual_clock.h"
#include "tests/support/signed_rows.h"
#include "tests/support/wallet_fixture.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/script.h"

namespace brickfall {
namespace {

using nlohmann::json;
using sandbox::Service;

std::string Repeat(std::string_view text, std::size_t count) {
    std::string all;
    for (std::size_t i = 0; i < count; ++i) all += text;
    return all;
}

// 6A is OP_RETURN; 4C, 4D and 4E are OP_PUSHDATA1, 2 and 4; 61 is "a".
TEST(WatchReader, ExtractsTheFirstPush) {
    const std::pair<std::string, std::optional<std::string>> rows[] = {
        {"6a0161", "a"},
        {"006A024a4Bff", "JK"},  // whatever stands behind the push
        {"6a4b" + Repeat("61", 75), std::string(75, 'a')},
        {"6a4c0161", "a"},
        {"6a4cff" + Repeat("61", 255), std::string(255, 'a')},
        {"6a4d0102" + Repeat("61", 513), std::string(513, 'a')},
        {"6a4dffff" + Repeat("61", 65'535), std::string(65'535, 'a')},
        {"", std::nullopt},
        {"006a", std::nullopt},
        {"00006a0161", std::nullopt},  // one OP_FALSE at most
        {"6a4d0000", std::nullopt},    // an empty push
        {"6a0261", std::nullopt},      // cut short
        {"6a4c", std::nullopt},
        {"6a4c0261", std::nullopt},
        {"6a4d01", std::nullopt},
        {"6a4d020061", std::nullopt},
        {"6a4e0100000061", std::nullopt},  // not read
        {"6a5161", std::nullopt},          // OP_1 pushes no bytes
        {"6a0161zz", std::nullopt},        // a fault behind the push counts too
        {"76a90161", std::nullopt},        // another script
    };
    for (const auto& [script, expected] : rows) {
        std::string payload = "former";
        EXPECT_EQ(ExtractPushPayload(script, payload), expected.has_value()) << script.substr(0, 40);
        EXPECT_EQ(payload, expected.value_or("")) << script.substr(0, 40);
    }
}

std::string Carrier(std::string_view payload) { return HexEncode(DataCarrierScript(payload)); }

TEST(WatchReader, FindsTheFirstRowInEitherServicesForm) {
    const std::string score = Carrier(R"({"type":"arcade_score","score":1})");
    const std::string second = Carrier(R"({"type":"arcade_score","score":2})");
    const std::string report = Carrier(R"({"type":"report","score":3})");
    const json found[] = {
        {{"vout", {{{"scriptPubKey", score}}}}},
        {{"vout", {{{"scriptPubKey", {{"hex", ""}}}, {"hex", score}}}}},
        {{"vout", {{{"scriptPubKey", {{"hex", 7}}}, {"hex", score}}}}},
        {{"vout", {{{"scriptPubKey", {{"hex", score}}}, {"hex", second}}}}},
        {{"vout", {7, nullptr, {{"hex", "76a9"}}, {{"hex", report}}, {{"hex", score}}, {{"hex", second}}}}},
        {{"vout",
          {{{"hex", Carrier("no json")}},
           {{"hex", Carrier("[1]")}},
           {{"hex", Carrier("{\"type\":\"arcade_score\xFF\"}")}},
           {{"hex", Carrier("{\"type\":7}")}},
           {{"hex", score}}}}},
    };
    const json first = json::parse(R"({"type":"arcade_score","score":1})");
    for (const json& transaction : found) {
        json row;
        EXPECT_TRUE(FindScorePayload(transaction, row)) << transaction;
        EXPECT_EQ(row, first) << transaction;
    }
    const json none[] = {
        json::array({{{"hex", score}}}),
        {{"vout", {{"hex", score}}}},
        {{"vout", {{{"hex", report}}}}},
        {{"vout", {{{"hex", Carrier(R"({"type":" arcade_score"})")}}}}},
    };
    for (const json& transaction : none) {
        json row = "former";
        EXPECT_FALSE(FindScorePayload(transaction, row)) << transaction;
        EXPECT_EQ(row, "former");
    }
}

TEST(WatchReader, ARowOfTheChainIsReadWhole) {
    const ManualClock clock;
    SandboxFixture services;
    ClearIdentityKeyCache();
    const TestPlayer bob = MakePlayer("bob");
    const std::string txid = TestTxid(1);
    services.box.Publish(IdentityOf(bob));
    json fields = SignedScore(bob, 500, kClockStart + 7);
    fields.update({{"game", "BrickFall"}, {"handle", "@Bob"}});  // as they are signed
    services.box.AddFault(Service::kIndexer, ReplyTo("/oi/oracle/", json{{"txids", {txid}}}.dump()));
    services.box.AddFault(Service::kIndexer, ReplyTo("/tx/" + txid, TransactionBody(txid, DumpRow(fields))));
    std::vector<ScoreRow> rows;
    ScoreRow best;
    bool has_best = false;
    std::string label = "former", message = "former";
    ReadChainBoard(rows, best, has_best, label, message);
    ASSERT_EQ(rows.size(), 1u);
    for (const ScoreRow& row : {rows[0], best}) {
        EXPECT_EQ(row.game + row.handle + row.paymail, "BrickFall@Bobbob@orvane.test");
        EXPECT_EQ(row.pubkey + row.pay_addr, bob.public_hex + bob.pay_addr);
        EXPECT_EQ(row.entry + row.txid, std::string(64, 'e') + txid);
        EXPECT_EQ(std::tuple(row.score, row.ts, row.verified), std::tuple(500, kClockStart + 7, true));
    }
    EXPECT_EQ(label + message, kTestWeekLabel);
    ClearIdentityKeyCache();
}

TEST(WatchReader, LabelsTheIsoWeek) {
    const ManualClock clock;
    const std::pair<int64_t, std::string> rows[] = {
        {1'789'948'800, "2026-W39"},
        {1'735'516'800, "2025-W01"},  // Monday 2024-12-30: the year is the Thursday's
        {1'609'113'600, "2020-W53"},  // Monday 2020-12-28
        {1'609'632'000, "2020-W53"},  // Sunday 2021-01-03
        {1'609'718'400, "2021-W01"},
        {1, "1970-W01"},
        {0, "2026-W39"},                 // the present week
        {316'516'204'800, "11999-W52"},  // 12000-01-01: the calendar repeats after 400 years
    };
    for (const auto& [instant, label] : rows) EXPECT_EQ(WeekLabel(instant), label) << instant;
    EXPECT_FALSE(WeekLabel(INT64_MAX).empty());
}

ChainRow Found(std::string txid, int64_t score, int64_t ts, int64_t week = 700) {
    ChainRow row;
    row.txid = std::move(txid);
    row.score = score;
    row.ts = ts;
    row.week = week;
    return row;
}

std::vector<std::string> Ids(const std::vector<ScoreRow>& rows) {
    std::vector<std::string> ids;
    for (const ScoreRow& row : rows) ids.push_back(row.txid);
    return ids;
}

TEST(WatchReader, TheListIsOfOneWeekAndTheBestOfAll) {
    struct Row {
        const char* why;
        std::vector<ChainRow> found;
        std::vector<std::string> week;
        std::string best;  // empty: there is none
    };
    const Row rows[] = {
        {"no points", {Found("a", 0, 5), Found("b", INT64_MIN, 5)}, {}, ""},
        {"another week", {Found("a", 9, 5, 0), Found("b", 8, 5, 1'400)}, {}, "a"},
        {"of equals the later first",
         {Found("d", 2, -5), Found("c", 2, 5), Found("e", 1, 20), Found("b", 2, 9), Found("a", 3, 1)},
         {"a", "b", "c", "d", "e"},
         "a"},
        {"a former best", {Found("a", 9, 5, 0), Found("b", 8, 5)}, {"b"}, "a"},
        {"the later of equals, the first of twins",
         {Found("a", 9, 5), Found("b", 9, 6, 0), Found("c", 9, 6)},
         {"c", "a"},
         "b"},
        {"limits", {Found("a", INT64_MAX - 1, 5), Found("b", INT64_MAX, INT64_MIN)}, {"b", "a"}, "b"},
    };
    for (const Row& row : rows) {
        std::vector<ScoreRow> week = {ScoreRow()};
        ScoreRow best = Found("former", 99, 99);
        bool has_best = true;
        RankRows(row.found, 700, week, best, has_best);
        EXPECT_EQ(Ids(week), row.week) << row.why;
        EXPECT_EQ(has_best, !row.best.empty()) << row.why;
        EXPECT_EQ(best.txid, row.best) << row.why;
    }
}

}  // namespace
}  // namespace brickfall
