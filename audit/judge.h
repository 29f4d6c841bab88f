// judge.h - what is wrong with a recorded score, and what could not be looked at. Pure: no network, no clock.
// What is certain only for a fault is called one; an honest row is never blamed. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "audit/evidence.h"

namespace brickfall {

// The names in the JSON report are stable.
enum class Verdict {
    kPayloadUnreadable,
    kSignatureWrong,
    kKeyNotPublished,
    kAnotherGame,
    kTapeMalformed,
    kSealWrong,
    kNotALostGame,
    kScoreDiffers,
    kTapeFull,
    kEntryUnpaid,
    kEntryUsed,
    kEventsCopied,
    kRunTooLong,
    kWeekWrong,
    kTooLarge,
};
inline constexpr std::size_t kVerdictCount = 15;

const char* VerdictName(Verdict verdict);  // kebab-case, as in "signature-wrong"
const char* VerdictText(Verdict verdict);  // as in "signature wrong"

struct Finding {
    Verdict verdict;
    std::string evidence;  // one line; may hold text of strangers, of any bytes
};

// A look-up that brought nothing, so that something about the row is not known.
struct NotLooked {
    const char* what;  // "transaction", "published key", "entry", "order"
    std::string why;
};

enum class AuditStatus { kSound, kUnsound, kCouldNotLook };
const char* StatusName(AuditStatus status);  // "sound", "unsound", "could-not-look"

// Of a tape that could be replayed, without a verdict.
struct RunFacts {
    int64_t length_ms = 0;
    int64_t score = 0;  // reached by the replay
    int32_t level = 0;
    std::size_t events = 0;
    std::size_t presses = 0;      // keys down and serves
    int64_t shortest_gap_ms = 0;  // between two presses that follow one another; 0 below two presses
    std::size_t same_tick = 0;    // presses on the very tick of another event
    double PressesPerSecond() const;
    double SameTickShare() const;  // of the presses
};

struct RowAudit {
    std::string txid;
    BlockPlace block;

    // As the row says.
    bool has_row = false;
    std::string handle;
    std::string actor;
    std::string pay_addr;
    std::string entry;
    std::string public_key;  // the row's own, compressed; empty when it is none
    int64_t score = 0;
    int64_t week = 0;
    int64_t ts = 0;

    std::vector<Finding> findings;      // in the order of Verdict
    std::vector<NotLooked> not_looked;  // in the order asked
    std::vector<const char*>
        not_judged;  // times that nobody told: "record's block time", "entry's block time"
    std::optional<RunFacts> run;

    AuditStatus Status() const {
        if (!findings.empty()) return AuditStatus::kUnsound;
        return not_looked.empty() ? AuditStatus::kSound : AuditStatus::kCouldNotLook;
    }
    bool Has(Verdict verdict) const;
};

// One row by itself.
RowAudit JudgeRow(const Evidence& evidence);

// Every row, on `threads` threads, and the rows against each other: whose entry and whose events an earlier
// one has used. One audit for each piece of evidence, in the same order. All rows that are known should be
// given, whatever is to be shown.
std::vector<RowAudit> JudgeRows(const std::vector<Evidence>& evidence, std::size_t threads);

// As the board ranks: by score, then the later first; what has no row comes last.
bool RanksAbove(const RowAudit& a, const RowAudit& b);

}  // namespace brickfall
