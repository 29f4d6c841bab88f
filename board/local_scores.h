// local_scores.h - the scores that this cabinet knows of by itself: a list of this week's and the best ever,
// two keys of the settings document, and their merging over what the chain holds.
// The document is the main thread's; a worker works on a snapshot of it.
#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "board/watch_reader.h"
#include "game/run_control.h"

namespace brickfall {

// An entry of the list, and the best ever, as the document holds them. A field that is missing or of another
// type has its default.
struct LocalScore {
    int64_t week = 0;  // WeekStart of the time it was written
    int64_t score = 0;
    std::string paymail;  // with its domain
    std::string pay_addr;
    std::string txid;  // of the record; empty until it is recorded
    int64_t ts = 0;    // of the latest write, Unix seconds
};

// What a board load needs of the main thread, copied before its worker starts. Only what is used is copied:
// the document may hold anything beside it, nested to any depth.
struct BoardSnapshot {
    std::vector<LocalScore> week_scores;  // in file order, of any week
    std::optional<LocalScore> best_ever;
    int64_t final_score = 0;
    std::string record_txid;
};

BoardSnapshot TakeBoardSnapshot(const nlohmann::json& ui_doc, const RunControl& run);

// Lists a score in the document: at the end of a run with an empty `txid`, and after its record with the
// transaction's id, which completes the same entry. `save` runs when something was stored.
void RecordLocalScore(nlohmann::json& ui_doc, int64_t final_score, std::string_view txid,
                      const std::function<void()>& save);

void MergeWeek(const BoardSnapshot& snapshot, std::vector<ScoreRow>& rows);
void MergeBest(const BoardSnapshot& snapshot, ScoreRow& best, bool& has_best);

// Appends a row for a local score unless a row stands for it already.
void AddLocalRow(std::vector<ScoreRow>& rows, const std::string& paymail, const std::string& pay_addr,
                 int64_t score, const std::string& txid);

void ConsiderBest(ScoreRow& best, bool& has_best, const ScoreRow& candidate);

}  // namespace brickfall
