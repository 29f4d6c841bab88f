// score_row.h - the row that records a run, and what it costs to record. Pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>

#include "game/run_control.h"

namespace brickfall {

// Who signs and is paid.
struct Player {
    std::string handle;   // the bare name
    std::string address;  // the present receive address
};

// Unsigned; `now` in Unix seconds.
nlohmann::json MakeScoreRow(const RunControl& run, Player player, int64_t now);

struct RecordCost {
    std::size_t row_bytes = 0;  // of the signed row
    int64_t fee = 0;            // satoshis, without those that the transaction hands to anybody
};

// What it would cost to record the run if it ended `now`, with coins of these values in spending order; with
// none it is reckoned for one that leaves change. `paymail` has its domain. No text of the tape is made, so a
// long run takes no longer than a short one.
RecordCost EstimateRecordCost(const RunControl& run, const std::string& paymail, const std::string& address,
                              int64_t now, std::span<const int64_t> coins);

}  // namespace brickfall
