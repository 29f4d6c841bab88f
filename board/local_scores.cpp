#include "board/local_scores.h"

#include <algorithm>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <numeric>
#include <unordered_set>
#include <utility>

#include "base/clock.h"
#include "game/week.h"
#include "messages/row.h"
#include "wallet/json/json_numbers.h"
#include "wallet/session/wallet_session.h"

namespace brickfall {
namespace {

using nlohmann::json;

struct WalletNames {
    std::string paymail;
    std::string pay_addr;
};

WalletNames ReadWalletNames() {
    WalletNames names;
    bool is_hd = false;
    return WalletSummary(names.pay_addr, names.paymail, is_hd) ? names : WalletNames();
}

int64_t IntegerAt(const json& entry, std::string_view key) {
    const json* const value = FindJsonKey(entry, key);
    return value == nullptr ? 0 : JsonExactInt64(*value).value_or(0);
}

LocalScore ReadLocalScore(const json& entry) {
    return {IntegerAt(entry, "week"),      IntegerAt(entry, "score"), JsonString(entry, "paymail"),
            JsonString(entry, "pay_addr"), JsonString(entry, "txid"), IntegerAt(entry, "ts")};
}

json WriteLocalScore(const LocalScore& local) {
    return {{"week", local.week},
            {"score", local.score},
            {"paymail", local.paymail},
            {"pay_addr", local.pay_addr},
            {"txid", local.txid},
            {"game", kBoardGameId},
            {"ts", local.ts}};
}

bool SharesName(const std::string& a, const std::string& b) { return !a.empty() && a == b; }

// True when `now` belongs to this entry, which is then brought up to date.
bool UpdateEntry(json& entry, const LocalScore& now) {
    const LocalScore former = ReadLocalScore(entry);
    if (former.week != now.week) return false;
    const bool same_record = SharesName(now.txid, former.txid);
    const bool same_player = SharesName(now.paymail, former.paymail) ||
                             SharesName(now.pay_addr, former.pay_addr) ||
                             (former.paymail.empty() && former.pay_addr.empty());
    if (!same_record && !(former.txid.empty() && former.score == now.score && same_player)) return false;
    entry["score"] = now.score;
    entry["paymail"] = now.paymail;
    entry["pay_addr"] = now.pay_addr;
    entry["ts"] = now.ts;
    if (!now.txid.empty()) entry["txid"] = now.txid;
    return true;
}

void UpdateWeek(json& ui_doc, const LocalScore& now) {
    json& list = ui_doc["week_scores"];
    if (!list.is_array()) list = json::array();
    const bool found = std::any_of(list.begin(), list.end(), [&now](json& entry) {
        return entry.is_object() && UpdateEntry(entry, now);
    });
    if (!found) list.push_back(WriteLocalScore(now));
    json kept = json::array();
    for (json& entry : list) {
        if (entry.is_object() && IntegerAt(entry, "week") == now.week) kept.push_back(std::move(entry));
    }
    list = std::move(kept);
}

void UpdateBestEver(json& ui_doc, const LocalScore& now) {
    json& best = ui_doc["best_ever"];
    const int64_t best_score = IntegerAt(best, "score");
    if (now.score > best_score) {
        best = WriteLocalScore(now);
    } else if (now.score == best_score && !now.txid.empty() && JsonString(best, "txid").empty()) {
        best["txid"] = now.txid;
    }
}

struct NamedScore {
    int64_t score;
    std::string_view name;
    bool operator==(const NamedScore&) const = default;
};

struct HashNamedScore {
    std::size_t operator()(const NamedScore& named) const {
        return std::hash<std::string_view>()(named.name) ^
               static_cast<std::size_t>(static_cast<uint64_t>(named.score) * 0x9E37'79B9'7F4A'7C15);
    }
};

using NamedScores = std::unordered_set<NamedScore, HashNamedScore>;

// What is looked for in the rows, so that a long list need not go through them for each entry. Points into
// the rows and scores that were noted, which must not move meanwhile.
struct KnownRows {
    std::unordered_set<std::string_view> txids;
    NamedScores paymails;
    NamedScores pay_addrs;
};

template <typename RowOrScore>
void Note(const RowOrScore& row, KnownRows& known) {
    if (!row.txid.empty()) known.txids.insert(row.txid);
    if (!row.paymail.empty()) known.paymails.insert({row.score, row.paymail});
    if (!row.pay_addr.empty()) known.pay_addrs.insert({row.score, row.pay_addr});
}

KnownRows NoteAll(const std::vector<ScoreRow>& rows) {
    KnownRows known;
    for (const ScoreRow& row : rows) Note(row, known);
    return known;
}

// True when the score is a row of its own; from then on it is one of the known. A row stands for it already
// when it is of the same record, or, for a score that has no record yet, the same player's same score.
bool Admit(const LocalScore& local, KnownRows& known) {
    if (local.score < 1) return false;
    const bool stands = local.txid.empty() ? known.paymails.contains({local.score, local.paymail}) ||
                                                 known.pay_addrs.contains({local.score, local.pay_addr})
                                           : known.txids.contains(local.txid);
    if (!stands) Note(local, known);
    return !stands;
}

ScoreRow LocalRow(const LocalScore& local) {
    ScoreRow row;
    row.handle = local.paymail;
    row.paymail = local.paymail;
    row.pay_addr = local.pay_addr;
    row.game = kBoardGameId;
    row.txid = local.txid;
    row.score = local.score;
    return row;
}

LocalScore OwnScore(const BoardSnapshot& snapshot, int64_t now) {
    WalletNames names = ReadWalletNames();
    return {WeekStart(now),           snapshot.final_score,
            std::move(names.paymail), std::move(names.pay_addr),
            snapshot.record_txid,     now};
}

// The rows with the scores behind them, cut to the highest; equal ones keep their order. Of a long list only
// what stays is made a row.
std::vector<ScoreRow> SortAndCut(std::vector<ScoreRow> rows, const std::vector<const LocalScore*>& added) {
    const auto score_at = [&](std::size_t i) {
        return i < rows.size() ? rows[i].score : added[i - rows.size()]->score;
    };
    std::vector<std::size_t> order(rows.size() + added.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    const std::size_t count = std::min(order.size(), kBoardRowCap);
    std::partial_sort(order.begin(), order.begin() + static_cast<std::ptrdiff_t>(count), order.end(),
                      [&](std::size_t a, std::size_t b) {
                          return score_at(a) != score_at(b) ? score_at(a) > score_at(b) : a < b;
                      });
    order.resize(count);
    std::vector<ScoreRow> board;
    for (const std::size_t i : order) {
        board.push_back(i < rows.size() ? std::move(rows[i]) : LocalRow(*added[i - rows.size()]));
    }
    return board;
}

bool BecomesBest(const ScoreRow& best, bool has_best, int64_t score, int64_t ts) {
    if (score < 1) return false;
    if (!has_best || score > best.score) return true;
    return score == best.score && (ts > best.ts || best.txid.empty());
}

void ConsiderLocalBest(ScoreRow& best, bool& has_best, const LocalScore& local) {
    if (!BecomesBest(best, has_best, local.score, local.ts)) return;
    best = LocalRow(local);
    best.ts = local.ts;
    has_best = true;
}

}  // namespace

BoardSnapshot TakeBoardSnapshot(const json& ui_doc, const RunControl& run) {
    BoardSnapshot snapshot;
    const json* const list = FindJsonKey(ui_doc, "week_scores");
    if (list != nullptr && list->is_array()) {
        snapshot.week_scores.reserve(list->size());
        for (const json& entry : *list) {
            if (entry.is_object()) snapshot.week_scores.push_back(ReadLocalScore(entry));
        }
    }
    const json* const best = FindJsonKey(ui_doc, "best_ever");
    if (best != nullptr && best->is_object()) snapshot.best_ever = ReadLocalScore(*best);
    snapshot.final_score = run.final_score;
    snapshot.record_txid = run.record_txid;
    return snapshot;
}

void RecordLocalScore(json& ui_doc, int64_t final_score, std::string_view txid,
                      const std::function<void()>& save) {
    if (final_score < 1) return;
    const int64_t now = UnixSeconds();
    WalletNames names = ReadWalletNames();
    const LocalScore local = {WeekStart(now),           final_score,
                              std::move(names.paymail), std::move(names.pay_addr),
                              std::string(txid),        now};
    if (!ui_doc.is_object()) ui_doc = json::object();
    UpdateWeek(ui_doc, local);
    UpdateBestEver(ui_doc, local);
    save();
}

void MergeWeek(const BoardSnapshot& snapshot, std::vector<ScoreRow>& rows) {
    const int64_t now = UnixSeconds();
    const LocalScore own = snapshot.final_score < 1 ? LocalScore() : OwnScore(snapshot, now);
    KnownRows known = NoteAll(rows);
    std::vector<const LocalScore*> added;
    for (const LocalScore& local : snapshot.week_scores) {
        if (local.week == WeekStart(now) && Admit(local, known)) added.push_back(&local);
    }
    if (Admit(own, known)) added.push_back(&own);
    rows = SortAndCut(std::move(rows), added);
}

void MergeBest(const BoardSnapshot& snapshot, ScoreRow& best, bool& has_best) {
    if (snapshot.best_ever) ConsiderLocalBest(best, has_best, *snapshot.best_ever);
    for (const LocalScore& local : snapshot.week_scores) ConsiderLocalBest(best, has_best, local);
    if (snapshot.final_score >= 1) {
        ConsiderLocalBest(best, has_best, OwnScore(snapshot, UnixSeconds()));
    }
}

void AddLocalRow(std::vector<ScoreRow>& rows, const std::string& paymail, const std::string& pay_addr,
                 int64_t score, const std::string& txid) {
    const LocalScore local = {0, score, paymail, pay_addr, txid, 0};
    KnownRows known = NoteAll(rows);
    if (Admit(local, known)) rows.push_back(LocalRow(local));
}

void ConsiderBest(ScoreRow& best, bool& has_best, const ScoreRow& candidate) {
    if (!BecomesBest(best, has_best, candidate.score, candidate.ts)) return;
    best = candidate;
    has_best = true;
}

}  // namespace brickfall
