#include "board/watch_reader.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <unordered_set>
#include <utility>

#include "base/clock.h"
#include "base/text.h"
#include "deployment/deployment.h"
#include "game/week.h"
#include "messages/row.h"
#include "messages/verification.h"
#include "net/http_client.h"
#include "net/url_text.h"
#include "wallet/json/json_numbers.h"
#include "wallet/protocol/encodings.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr uint8_t kOpFalse = 0x00;
constexpr uint8_t kOpReturn = 0x6A;
constexpr uint8_t kOpPushData1 = 76;
constexpr uint8_t kOpPushData2 = 77;
constexpr uint8_t kOpPushData4 = 78;
constexpr std::size_t kTxidChars = 64;
constexpr JsonLimits kRowLimits = {.bytes = kBoardRowBytes,
                                   .values = 1'000};  // some twenty, and a row is flat
constexpr int64_t kDaySeconds = 86'400;
constexpr int64_t kDaysOf400Years = 146'097;  // whole weeks, after which the calendar repeats

void AddTxid(const std::string& txid, std::vector<std::string>& list) {
    if (txid.size() == kTxidChars) list.push_back(txid);
}

void CollectItems(const json& items, std::vector<std::string>& list) {
    for (const json& item : items) {
        if (item.is_string()) {
            AddTxid(item.get_ref<const std::string&>(), list);
        } else {
            AddTxid(JsonString(item, "tx_hash", "txid"), list);
        }
    }
}

// The family's indexer. False when it gave no list; an empty one is an answer.
bool AskIndexer(std::vector<std::string>& list) {
    json answer;
    const std::string url =
        std::string(kApiBaseUrl) + "/oi/oracle/" + kBoardGameId + "/txids?limit=2000&offset=0";
    if (!FetchJson(url, answer, kIdsAnswer)) return false;
    const json* const txids = FindJsonKey(answer, "txids");
    if (txids == nullptr || !txids->is_array()) return false;
    CollectTxids(answer, list);
    return true;
}

// The first kBoardTxidCap distinct ids, in the order found.
std::vector<std::string> FindTxids() {
    std::vector<std::string> found;
    if (!AskIndexer(found)) ListWatchAddress(found);
    std::vector<std::string> distinct;
    std::unordered_set<std::string_view> seen;  // into `found`
    for (const std::string& txid : found) {
        if (distinct.size() == kBoardTxidCap) break;
        if (seen.insert(txid).second) distinct.push_back(txid);
    }
    return distinct;
}

bool FetchTransaction(std::string_view txid, json& transaction) {
    for (const std::string& folder :
         {std::string(kApiBaseUrl) + "/oi/tx/", std::string(kChainApiBaseUrl) + "/tx/"}) {
        const auto url = UrlWithName(folder, txid);
        if (url && FetchJson(*url, transaction, kTransactionAnswer)) return true;
    }
    return false;
}

}  // namespace

void ReadChainBoard(std::vector<ScoreRow>& week_rows, ScoreRow& best, bool& has_best, std::string& week_label,
                    std::string& message) {
    week_rows.clear();
    best = {};
    has_best = false;
    message.clear();
    const int64_t week_start = WeekStart(UnixSeconds());
    week_label = WeekLabel(week_start);

    std::vector<ChainRow> found;
    for (const std::string& txid : FindTxids()) {
        json transaction;
        ChainRow row;
        if (FetchTransaction(txid, transaction) && ReadChainRow(transaction, txid, row)) {
            found.push_back(std::move(row));
        }
    }
    RankRows(found, week_start, week_rows, best, has_best);
    if (week_rows.empty()) message = has_best ? "No scores for this week yet." : "No scores posted yet.";
}

bool ReadChainRow(const json& transaction, const std::string& txid, ChainRow& row) {
    json fields;
    if (!FindScorePayload(transaction, fields) || !VerifyMessage(fields)) return false;
    const std::string game = JsonString(fields, "game");
    if (!game.empty() && Lower(game) != kBoardGameId) return false;
    row.txid = txid;
    row.game = game;
    row.handle = JsonString(fields, "handle");
    if (row.handle.empty()) row.handle = JsonString(fields, "actor");
    row.paymail = JsonString(fields, "paymail");
    row.pubkey = JsonString(fields, "pubkey");
    row.pay_addr = JsonString(fields, "pay_addr");
    row.entry = JsonString(fields, "entry");
    row.score = JsonInt(fields, "score");
    row.week = JsonInt(fields, "week");
    row.ts = JsonInt(fields, "ts");
    row.verified = true;
    return true;
}

bool StandsAbove(const ScoreRow& a, const ScoreRow& b) {
    return a.score != b.score ? a.score > b.score : a.ts > b.ts;
}

void RankRows(const std::vector<ChainRow>& found, int64_t week_start, std::vector<ScoreRow>& week_rows,
              ScoreRow& best, bool& has_best) {
    week_rows.clear();
    best = {};
    has_best = false;
    for (const ChainRow& row : found) {
        if (row.score < 1) continue;
        if (row.week == week_start) week_rows.push_back(row);
        if (has_best && !StandsAbove(row, best)) continue;
        best = row;
        has_best = true;
    }
    std::stable_sort(week_rows.begin(), week_rows.end(), StandsAbove);
    if (week_rows.size() > kBoardRowCap) week_rows.resize(kBoardRowCap);
}

std::string WeekLabel(int64_t week_start) {
    if (week_start < 1) week_start = WeekStart(UnixSeconds());
    const int64_t day = week_start / kDaySeconds;
    const int64_t thursday = day - (day + 3) % 7 + 3;  // its year is the week's; day 0 was a Thursday
    using std::chrono::sys_days;
    const sys_days in_cycle{std::chrono::days{static_cast<int>(thursday % kDaysOf400Years)}};
    const std::chrono::year year = std::chrono::year_month_day{in_cycle}.year();
    const auto day_of_year = in_cycle - sys_days{year / std::chrono::January / 1};
    char text[32];
    std::snprintf(text, sizeof text, "%04lld-W%02d",
                  static_cast<long long>(thursday / kDaysOf400Years * 400 + int{year}),
                  static_cast<int>(day_of_year.count() / 7 + 1));
    return text;
}

void CollectTxids(const json& answer, std::vector<std::string>& list) {
    if (answer.is_array()) CollectItems(answer, list);
    for (const char* const key : {"txids", "result"}) {
        const json* const items = FindJsonKey(answer, key);
        if (items != nullptr && items->is_array()) CollectItems(*items, list);
    }
}

bool ListWatchAddress(std::vector<std::string>& list) {
    const std::string base = std::string(kChainApiBaseUrl) + "/address/" + kArcadeWatchAddress;
    bool answered = false;
    for (const char* const listing :
         {"/unconfirmed/history?limit=50", "/unspent", "/confirmed/history?limit=50"}) {
        json answer;
        if (!FetchJson(base + listing, answer, kIdsAnswer)) continue;
        CollectTxids(answer, list);
        answered = true;
    }
    return answered;
}

std::string OutputScriptHex(const json& output) {
    if (const json* const script = FindJsonKey(output, "scriptPubKey")) {
        std::string hex = script->is_string() ? script->get<std::string>() : JsonString(*script, "hex");
        if (!hex.empty()) return hex;
    }
    return JsonString(output, "hex");
}

bool FindPushPayload(std::span<const uint8_t> script, PushSize size, std::string_view& payload) {
    std::size_t at = !script.empty() && script[0] == kOpFalse ? 1 : 0;
    if (script.size() < at + 2 || script[at] != kOpReturn) return false;
    const uint8_t op = script[at + 1];
    at += 2;
    std::size_t length = op;
    if (op >= kOpPushData1) {
        if (op > (size == PushSize::kAny ? kOpPushData4 : kOpPushData2)) return false;
        const std::size_t width = std::size_t{1} << (op - kOpPushData1);
        if (script.size() - at < width) return false;
        length = 0;
        for (std::size_t i = 0; i < width; ++i) length |= std::size_t{script[at + i]} << (8 * i);
        at += width;
    }
    if (length == 0 || length > script.size() - at) return false;
    payload = {reinterpret_cast<const char*>(script.data()) + at, length};
    return true;
}

bool ExtractPushPayload(std::string_view script_hex, std::string& payload) {
    payload.clear();
    const ByteBuffer script = HexDecode(script_hex);  // empty for text that is no whole bytes
    std::string_view found;
    if (!FindPushPayload(script, PushSize::kBoard, found)) return false;
    payload = found;
    return true;
}

bool FindScorePayload(const json& transaction, json& row) {
    const json* const outputs = FindJsonKey(transaction, "vout");
    if (outputs == nullptr || !outputs->is_array()) return false;
    std::string payload;
    for (const json& output : *outputs) {
        if (!output.is_object() || !ExtractPushPayload(OutputScriptHex(output), payload)) continue;
        json found = ParseForeignJson(payload, kRowLimits);
        if (!found.is_object() || JsonString(found, "type") != "arcade_score") continue;
        row = std::move(found);
        return true;
    }
    return false;
}

}  // namespace brickfall
