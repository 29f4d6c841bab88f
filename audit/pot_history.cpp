#include "audit/pot_history.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <span>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "audit/entry_payment.h"
#include "base/text.h"
#include "base/workers.h"
#include "deployment/deployment.h"
#include "messages/row.h"
#include "net/answer_limits.h"
#include "net/http_client.h"
#include "net/url_text.h"
#include "wallet/json/json_numbers.h"
#include "wallet/payment/pay_drivers.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr std::size_t kMaxPages = 10'000;  // of a thousand payments each
constexpr std::size_t kBatch = 64;         // looked up between two looks at the time

// Blocks carry the times that their makers set: one may be dated up to two hours ahead, and later than the
// next. A day is ample.
constexpr int64_t kHistorySlack = 86'400;

constexpr int64_t kWaitingHeight = 0;
constexpr int64_t kHeightNotTold = -1;

using ListedHeights = std::unordered_map<std::string, int64_t>;  // by id in lower case

// The rows of a history, in either generation's shape. False when one of them names no transaction: a list
// that is wrong in one place may lack another.
bool ReadHistoryRows(const json& answer, bool mined, ListedHeights& listed) {
    const json* const rows = answer.is_array() ? &answer : FindJsonKey(answer, "result");
    if (rows == nullptr || !rows->is_array()) return false;
    for (const json& row : *rows) {
        const std::string txid = Lower(JsonString(row, "tx_hash", "txid"));
        if (!IsTxidText(txid)) return false;
        int64_t height = kWaitingHeight;
        if (mined) {
            const json* const told = FindJsonNumber(row, "height");
            height = told != nullptr ? JsonExactInt64(*told).value_or(0) : 0;
            if (height < 1) height = kHeightNotTold;
        }
        listed[txid] = height;
    }
    return true;
}

bool ListHistory(const std::string& url, bool mined, ListedHeights& listed, std::string& error) {
    std::unordered_set<std::string> tokens;
    std::string page_url = url;
    while (tokens.size() < kMaxPages) {
        json answer;
        const LookUp look_up = LookUpJson(page_url, answer, error, kIdsAnswer);
        if (look_up == LookUp::kFailed) return false;
        if (look_up == LookUp::kNone && tokens.empty()) return true;  // nothing is known of the address
        if (look_up == LookUp::kNone || !ReadHistoryRows(answer, mined, listed)) {
            error = "an answer that is no list of transactions";
            return false;
        }
        const std::string token = JsonString(answer, "nextPageToken");
        if (token.empty()) return true;
        if (!tokens.insert(token).second) break;
        page_url = url + (url.find('?') == std::string::npos ? '?' : '&') + "token=" + QueryValue(token);
    }
    error = "a list without an end";
    return false;
}

// What waits first: what a block takes in between stands in the second list, and in neither order in none.
bool ListPotHistory(ListedHeights& listed, std::string& error) {
    const std::string base = std::string(kChainApiBaseUrl) + "/address/" + kArcadePotAddress;
    return ListHistory(base + "/unconfirmed/history", /*mined=*/false, listed, error) &&
           ListHistory(base + "/confirmed/history?order=asc&limit=1000", /*mined=*/true, listed, error);
}

struct LookedUp {
    std::string txid;
    int64_t height = 0;  // as listed
    bool found = false;
    AuditTransaction transaction;
    std::string error;
};

// By height, the highest first; ahead of them those without one, which may belong anywhere.
std::vector<LookedUp> NewestFirst(const ListedHeights& listed) {
    std::vector<LookedUp> list;
    for (const auto& [txid, height] : listed) list.push_back({txid, height, false, {}, {}});
    const auto rank = [](const LookedUp& one) { return one.height > 0 ? one.height : INT64_MAX; };
    std::sort(list.begin(), list.end(), [&rank](const LookedUp& a, const LookedUp& b) {
        return rank(a) != rank(b) ? rank(a) > rank(b) : a.txid < b.txid;
    });
    return list;
}

// False for one that was mined before `from`.
bool Keep(LookedUp& one, int64_t from, PotHistory& history) {
    if (!one.found) {
        history.not_read.emplace_back(one.txid, one.error);
        return true;
    }
    BlockPlace& block = one.transaction.block;
    if (block.IsMined() && block.time > 0 && block.time < from) return false;
    // Listed as mined and told as waiting: whoever told it is behind.
    if (one.height != kWaitingHeight && !block.IsMined()) block = {};
    if (PaidToPot(one.transaction) > 0) history.transactions.push_back(std::move(one.transaction));
    return true;
}

}  // namespace

PotHistory CollectPotHistory(int64_t week_start, std::size_t threads, const FindTransaction& find,
                             const std::function<void(std::size_t, std::size_t)>& progress) {
    PotHistory history = {.week_start = week_start};
    ListedHeights listed;
    history.all_listed = ListPotHistory(listed, history.error);
    std::vector<LookedUp> list = NewestFirst(listed);
    progress(0, list.size());
    bool reaches_week = true;
    for (std::size_t at = 0; reaches_week && at < list.size();) {
        const std::span batch = std::span(list).subspan(at, std::min(kBatch, list.size() - at));
        RunInParallel(batch.size(), threads, [&batch, &find](std::size_t i) {
            batch[i].found = find(batch[i].txid, batch[i].transaction, batch[i].error);
        });
        reaches_week = false;
        for (LookedUp& one : batch) reaches_week |= Keep(one, week_start - kHistorySlack, history);
        at += batch.size();
        progress(at, list.size());
    }
    progress(list.size(), list.size());
    return history;
}

int64_t PaidToPot(const AuditTransaction& transaction) {
    return PaidTo(transaction, kArcadePotAddress, kArcadePotSats).sum;
}

std::vector<PotPayment> PaymentsToPot(const PotHistory& history) {
    std::vector<PotPayment> payments;
    for (const AuditTransaction& transaction : history.transactions) {
        PotPayment payment = {
            .txid = transaction.txid, .satoshis = PaidToPot(transaction), .is_entry = PaysEntry(transaction)};
        const BlockPlace& block = transaction.block;
        if (block.IsMined() && block.time > 0) {
            payment.burial = Burial::kMined;
            payment.time = block.time;
        } else if (block.told && !block.IsMined()) {
            payment.burial = Burial::kWaiting;
        } else {
            payment.why = "block time not told";
        }
        payments.push_back(std::move(payment));
    }
    for (const auto& [txid, why] : history.not_read) payments.push_back({.txid = txid, .why = why});
    return payments;
}

}  // namespace brickfall
