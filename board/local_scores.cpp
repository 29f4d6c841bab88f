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
#include "wallet/json_numbers.h"
#include "wallet/ov_pouch_wallet.h"

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

// What the rows in hand say of a local score, without going through them for each. Points into the rows, so
// they must not move meanwhile.
class KnownRows {
  public:
    explicit KnownRows(const std::vector<ScoreRow>& rows) {
        for (const ScoreRow& row : rows) Add(row);
    }

    void Add(const ScoreRow& row) {
        if (!row.txid.empty()) txids_.insert(row.txid);
        if (!row.paymail.empty()) paymails_.insert({row.score, row.paymail});
        if (!row.pay_addr.empty()) pay_addrs_.insert({row.score, row.pay_addr});
    }

    // The same record, or, for a score that has no record yet, the same player's same score.
    bool StandFor(const LocalScore& local) const {
        if (!local.txid.empty()) return txids_.contains(local.txid);
        return paymails_.contains({local.score, local.paymail}) ||
               pay_addrs_.contains({local.score, local.pay_addr});
    }

  private:
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

    std::unordered_set<std::string_view> txids_;
    NamedScores paymails_;
    NamedScores pay_addrs_;
};

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

ScoreRow BestCandidate(const LocalScore& local) {
    ScoreRow row = LocalRow(local);
    row.ts = local.ts;
    return row;
}

// `rows` has room for one more.
void AddUnlessKnown(std::vector<ScoreRow>& rows, KnownRows& known, const LocalScore& local) {
    if (local.score < 1 || known.StandFor(local)) return;
    rows.push_back(LocalRow(local));
    known.Add(rows.back());
}

LocalScore OwnScore(const BoardSnapshot& snapshot, int64_t now) {
    WalletNames names = ReadWalletNames();
    return {WeekStart(now),           snapshot.final_score,
            std::move(names.paymail), std::move(names.pay_addr),
            snapshot.record_txid,     now};
}

// The highest scores; equal ones keep their order. Only what stays is moved.
void SortAndCut(std::vector<ScoreRow>& rows) {
    std::vector<std::size_t> order(rows.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    const std::size_t count = std::min(order.size(), kBoardRowCap);
    std::partial_sort(order.begin(), order.begin() + static_cast<std::ptrdiff_t>(count), order.end(),
                      [&rows](std::size_t a, std::size_t b) {
                          return rows[a].score != rows[b].score ? rows[a].score > rows[b].score : a < b;
                      });
    std::vector<ScoreRow> best;
    best.reserve(count);
    for (std::size_t i = 0; i < count; ++i) best.push_back(std::move(rows[order[i]]));
    rows = std::move(best);
}

}  // namespace

BoardSnapshot TakeBoardSnapshot(const json& ui_doc, const RunControl& run) {
    BoardSnapshot snapshot;
    const json* const list = FindJsonKey(ui_doc, "week_scores");
    if (list != nullptr && list->is_array()) {
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
    rows.reserve(rows.size() + snapshot.week_scores.size() + 1);  // so that no row moves
    KnownRows known(rows);
    for (const LocalScore& local : snapshot.week_scores) {
        if (local.week == WeekStart(now)) AddUnlessKnown(rows, known, local);
    }
    if (snapshot.final_score >= 1) AddUnlessKnown(rows, known, OwnScore(snapshot, now));
    SortAndCut(rows);
}

void MergeBest(const BoardSnapshot& snapshot, ScoreRow& best, bool& has_best) {
    if (snapshot.best_ever) ConsiderBest(best, has_best, BestCandidate(*snapshot.best_ever));
    for (const LocalScore& local : snapshot.week_scores) ConsiderBest(best, has_best, BestCandidate(local));
    if (snapshot.final_score >= 1) {
        ConsiderBest(best, has_best, BestCandidate(OwnScore(snapshot, UnixSeconds())));
    }
}

void AddLocalRow(std::vector<ScoreRow>& rows, const std::string& paymail, const std::string& pay_addr,
                 int64_t score, const std::string& txid) {
    rows.reserve(rows.size() + 1);
    KnownRows known(rows);
    AddUnlessKnown(rows, known, {0, score, paymail, pay_addr, txid, 0});
}

void ConsiderBest(ScoreRow& best, bool& has_best, const ScoreRow& candidate) {
    if (candidate.score < 1) return;
    if (has_best) {
        if (candidate.score < best.score) return;
        if (candidate.score == best.score && candidate.ts <= best.ts && !best.txid.empty()) return;
    }
    best = candidate;
    has_best = true;
}

}  // namespace brickfall
