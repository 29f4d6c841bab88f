// report.h - what an audit has found, for people and for programs. Pure functions; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "audit/collect.h"
#include "audit/judge.h"

namespace brickfall {

struct AuditReport {
    std::string scope;       // in words
    bool listed = true;      // the ids of the records could be had
    std::string list_error;  // of the indexer, when it did not answer; the chain API lists the newest alone
    std::vector<RowAudit> rows;  // as the board ranks
};

// Judges all and keeps what is to be shown.
AuditReport MakeReport(const Collected& collected, std::size_t threads);

struct AuditTotals {
    std::size_t sound = 0;
    std::size_t unsound = 0;
    std::size_t could_not_look = 0;
};

AuditTotals CountRows(const AuditReport& report);

// One line for whoever watches: the name, made harmless; "nobody" where the row names none.
std::string RunName(const RowAudit& audit);
// Under which the player's picture is kept; see board/faces.h.
std::string RunFaceKey(const RowAudit& audit);
// "sound", "unsound: seal is not the tape's", "could not look: published key".
std::string VerdictLine(const RowAudit& audit);
// As runs are listed to be watched: sound ones first, and of equal standing as the board ranks.
bool WatchedAbove(const RowAudit& a, const RowAudit& b);

// What the program ends with: 0 when all is sound, 1 when something is not, else 2 when something could not
// be looked at.
int ExitCode(const AuditReport& report);

// A table with what was found under each row, its lines each with an end. Text of strangers is made harmless.
std::string ReportText(const AuditReport& report, bool coloured);

// As docs/formats.md says.
nlohmann::json ReportJson(const AuditReport& report);

// Indented, with an end of line. Bytes that are no UTF-8 become U+FFFD.
std::string JsonText(const nlohmann::json& document);

}  // namespace brickfall
