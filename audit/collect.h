// collect.h - which records are to be judged, and what the services know of them. Blocks; many requests at a
// time. Reads services only: no wallet, no file. A look-up that fails is told as such and ends nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "audit/evidence_file.h"

namespace brickfall {

inline constexpr std::size_t kRequestsAtOnce = 32;
inline constexpr std::size_t kIdsAPage = 2'000;  // of the indexer's list

enum class ScopeKind { kAsSaved, kWeek, kAll, kOne };

struct AuditScope {
    ScopeKind kind = ScopeKind::kWeek;  // kAsSaved: of a file alone
    int64_t week = 0;                   // of kWeek, its start in Unix seconds
    std::string txid = {};              // of kOne, 64 lower-case digits
    bool every_page = false;            // of the indexer's list; else the first
    bool with_pot = false;              // of kWeek: what the pot was paid, for a settlement
};

struct Collected : SavedEvidence {
    bool listed = false;      // the ids of the records could be had
    bool by_indexer = false;  // else by the chain API, which lists the newest alone
    std::string list_error;   // why the indexer did not
};

// `done` of `of` requests for `what` have been answered; from several threads at once.
using AuditProgress = std::function<void(const char* what, std::size_t done, std::size_t of)>;

// One record is asked for even where no list names it.
Collected Collect(const AuditScope& scope, const AuditProgress& progress);

// Puts what is to be judged first, and keeps of the others what it is compared with. A record whose row could
// not be had is of every week.
void Select(const AuditScope& scope, SavedEvidence& saved);

}  // namespace brickfall
