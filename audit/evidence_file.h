// evidence_file.h - evidence as a file: what a former audit has used, or the raw transactions of a chain.
// Read, it stands for the services. Pure functions; any thread; nothing throws but std::bad_alloc.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "audit/evidence.h"
#include "audit/pot_history.h"

namespace brickfall {

inline constexpr std::size_t kMaxEvidenceBytes = 256 << 20;  // of a file

// What was used, in the order in which it is to be read again: the records that were judged come first,
// behind them those that they were compared with.
struct SavedEvidence {
    std::vector<Evidence> evidence;
    std::size_t judged = 0;        // how many of them are to be shown; the others are compared with alone
    std::string scope;             // of which records they are, in words
    bool all_rows_listed = false;  // no record of the week is missing but for a look-up that failed
    PotHistory pot;  // for a settlement; of a file that was saved for none, what it happens to hold
};

// {"version": 1, "scope": words, "rows": [id],
//  "transactions": [{"hex" | "tx", "height", "time"}], "missing": [id],
//  "identities": {name@domain: key | null}, and of a settlement
//  "settlement": {"week", "known_at", "all_rows_listed", "all_payments_listed", "payments": [id]}}
// or an array of raw transactions in hexadecimal, of which every record of a score is judged. What is not in
// the file could not be looked at. On false `error` says why.
bool ReadEvidence(std::string_view text, std::size_t threads, SavedEvidence& saved, std::string& error);

std::string WriteEvidence(const SavedEvidence& saved);

}  // namespace brickfall
