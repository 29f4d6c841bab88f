#include "board/watch_reader.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/manual_clock.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/script.h"

namespace brickfall {
namespace {

using nlohmann::json;

std::string Repeat(std::string_view text, std::size_t count) {
    std::string all;
    for (std::size_t i = 0; i < count; ++i) all += text;
    return all;
}

// 6A is OP_RETURN; 4C, 4D and 4E are OP_PUSHDATA1, 2 and 4; 61 is "a".
TEST(WatchReader, ExtractsTheFirstPush) {
    const std::pair<std::string, std::optional<std::string>> rows[] = {
        {"006a0161", "a"},
        {"6a0161", "a"},
        {"006A024a4B", "JK"},
        {"6a0161ff", "a"},  // whatever stands behind the push
        {"6a4b" + Repeat("61", 75), std::string(75, 'a')},
        {"6a4c0161", "a"},
        {"6a4c4c" + Repeat("61", 76), std::string(76, 'a')},
        {"6a4cff" + Repeat("61", 255), std::string(255, 'a')},
        {"6a4d010061", "a"},
        {"6a4d0102" + Repeat("61", 513), std::string(513, 'a')},
        {"6a4dffff" + Repeat("61", 65'535), std::string(65'535, 'a')},
        {"6a0100", std::string(1, '\0')},
        {"", std::nullopt},
        {"6a", std::nullopt},
        {"006a", std::nullopt},
        {"00006a0161", std::nullopt},  // one OP_FALSE at most
        {"6a00", std::nullopt},        // an empty push
        {"6a4c00", std::nullopt},
        {"6a4d0000", std::nullopt},
        {"6a0261", std::nullopt},  // cut short
        {"6a4c", std::nullopt},
        {"6a4c0261", std::nullopt},
        {"6a4d01", std::nullopt},
        {"6a4d020061", std::nullopt},
        {"6a4e0100000061", std::nullopt},  // not read
        {"6a5161", std::nullopt},          // OP_1 pushes no bytes
        {"6a016", std::nullopt},           // half a byte
        {"6a016g", std::nullopt},
        {"6a0161zz", std::nullopt},  // a fault behind the push counts too
        {"0x6a0161", std::nullopt},
        {"76a90161", std::nullopt},  // another script
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
        {{"vout", {{{"scriptPubKey", {{"hex", score}}}}}}},
        {{"vout", {{{"scriptPubKey", score}}}}},
        {{"vout", {{{"hex", score}}}}},
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
        nullptr,
        json::array({{{"hex", score}}}),
        {{"vout", {{"hex", score}}}},
        {{"vout", json::array()}},
        {{"vout", {{{"hex", report}}}}},
        {{"vout", {{{"hex", Carrier(R"({"type":" arcade_score"})")}}}}},
    };
    for (const json& transaction : none) {
        json row = "former";
        EXPECT_FALSE(FindScorePayload(transaction, row)) << transaction;
        EXPECT_EQ(row, "former");
    }
}

TEST(WatchReader, CollectsIdsFromEveryShape) {
    const std::string a(64, 'a'), b(64, 'B'), c(64, ' ');  // only the length is tested
    const std::pair<json, std::vector<std::string>> rows[] = {
        {json::array({a, b, a, c}), {a, b, a, c}},
        {json::array({{{"tx_hash", a}}, {{"txid", b}}}), {a, b}},
        {json::array({{{"tx_hash", a}, {"txid", b}}}), {a}},
        {json::array({{{"tx_hash", "short"}, {"txid", b}}}), {}},  // a text decides, whatever it is
        {json::array({{{"tx_hash", 7}, {"txid", b}}, {{"tx_hash", nullptr}, {"txid", a}}}), {b, a}},
        {json::array({a.substr(1), a + "a", 7, nullptr, 1.5, json::array({a}), {{"id", a}}}), {}},
        {{{"txids", {a}}, {"result", {{{"tx_hash", b}}}}, {"error", ""}}, {a, b}},
        {{{"result", {a}}}, {a}},
        {{{"txids", {{"x", a}}}, {"result", a}}, {}},
        {{{"transactions", {a}}}, {}},
        {a, {}},
        {nullptr, {}},
    };
    for (const auto& [answer, expected] : rows) {
        std::vector<std::string> list = {"former"};
        CollectTxids(answer, list);
        list.erase(list.begin());
        EXPECT_EQ(list, expected) << answer;
    }
}

TEST(WatchReader, LabelsTheIsoWeek) {
    const ManualClock clock;
    const std::pair<int64_t, std::string> rows[] = {
        {1'789'948'800, "2026-W39"},
        {1'735'516'800, "2025-W01"},  // Monday 2024-12-30: the year is the Thursday's
        {1'609'113'600, "2020-W53"},  // Monday 2020-12-28
        {1'609'632'000, "2020-W53"},  // Sunday 2021-01-03
        {1'609'718'400, "2021-W01"},
        {946'684'800, "1999-W52"},  // Saturday 2000-01-01
        {1, "1970-W01"},
        {0, "2026-W39"},  // the present week
        {-1'789'948'800, "2026-W39"},
        {13'569'465'600, "2399-W52"},    // 2400-01-01: the calendar repeats after 400 years
        {316'516'204'800, "11999-W52"},  // 12000-01-01
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
        {"nothing", {}, {}, ""},
        {"no points", {Found("a", 0, 5), Found("b", INT64_MIN, 5)}, {}, ""},
        {"another week", {Found("a", 9, 5, 0), Found("b", 8, 5, 1'400)}, {}, "a"},
        {"of equals the later first, whatever order they came in",
         {Found("d", 2, -5), Found("c", 2, 5), Found("e", 1, 20), Found("b", 2, 9), Found("a", 3, 1)},
         {"a", "b", "c", "d", "e"},
         "a"},
        {"of equals in another order",
         {Found("a", 3, 1), Found("b", 2, 9), Found("e", 1, 20), Found("d", 2, -5), Found("c", 2, 5)},
         {"a", "b", "c", "d", "e"},
         "a"},
        {"a former best", {Found("a", 9, 5, 0), Found("b", 8, 5)}, {"b"}, "a"},
        {"the later of equals", {Found("a", 9, 5), Found("b", 9, 6, 0)}, {"a"}, "b"},
        {"the first of twins", {Found("a", 9, 5, 0), Found("b", 9, 5)}, {"b"}, "a"},
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
