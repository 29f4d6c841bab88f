// run_source.h - from where runs come to be watched: a row, a file of transactions, a transaction's id, a
// week's board. Everything is read as the auditor reads it, and judged. Blocks; any thread. Opens no wallet
// and no store.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "audit/collect.h"
#include "audit/judge.h"
#include "game/replay.h"

namespace brickfall {

// A recorded run, or what there is of one.
struct WatchedRun {
    RowAudit audit;
    std::optional<InputTape> tape;  // nothing where none can be played, not even in part
    TapeFault fault = TapeFault::kNone;
    std::string tape_text = {};  // as the row has them, whatever they are
    std::string seal = {};
};

// A source of runs: a transaction's id, a file, or neither: the board of the present week.
struct RunSource {
    std::string txid = {};  // 64 lower-case digits
    std::string file = {};
    // Of the board: written after each load from the services, and read where none of them answers.
    std::string kept_file = {};
};

struct LoadedRuns {
    std::vector<WatchedRun> runs;  // sound ones first, and of equal standing as the board ranks
    std::string title;             // what they are, in words
    std::string note;              // what went wrong on the way and did not keep the runs away; or empty
    std::string error;             // one line; `runs` is empty then
};

// What the argument of a command line names: 64 hexadecimal digits are an id, all else is a file.
RunSource SourceOf(std::string_view argument);

LoadedRuns LoadRuns(const RunSource& source, const AuditProgress& progress);

}  // namespace brickfall
