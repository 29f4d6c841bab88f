#include "viewer/run_source.h"

#include <algorithm>
#include <new>
#include <span>
#include <thread>
#include <utility>

#include "audit/display_text.h"
#include "audit/report.h"
#include "base/clock.h"
#include "base/files.h"
#include "base/foreign_json.h"
#include "base/text.h"
#include "board/watch_reader.h"
#include "game/week.h"
#include "messages/row.h"

namespace brickfall {
namespace {

using nlohmann::json;

// Of a row by itself, a full tape in it.
constexpr JsonLimits kRowFile = {.bytes = 4 << 20, .values = 1'000};
constexpr std::size_t kNameColumns = 60;
constexpr std::size_t kErrorColumns = 200;

WatchedRun MakeRun(const Evidence& evidence, RowAudit audit) {
    WatchedRun run{.audit = std::move(audit), .tape = std::nullopt, .fault = TapeFault::kNone};
    if (evidence.row_state != RowState::kRow || run.audit.Has(Verdict::kAnotherGame)) return run;
    run.tape_text = JsonString(evidence.row, "tape");
    run.seal = JsonString(evidence.row, "tape_hash");
    ByteBuffer bytes;
    if (!HexToBytes(NormalizeHex(run.tape_text), bytes)) return run;
    InputTape tape;
    run.fault = ReadTape(bytes, tape);
    const bool has_events = run.fault == TapeFault::kNone || !tape.events.empty();
    if (has_events) run.tape = std::move(tape);
    return run;
}

// Judges all that is known and keeps what was asked for.
void TakeRuns(const SavedEvidence& saved, LoadedRuns& loaded) {
    const std::size_t threads = std::max(std::thread::hardware_concurrency(), 1u);
    std::vector<RowAudit> audits = JudgeRows(saved.evidence, threads);
    for (std::size_t i = 0; i < saved.judged; ++i) {
        if (!audits[i].has_row) continue;
        loaded.runs.push_back(MakeRun(saved.evidence[i], std::move(audits[i])));
    }
    std::ranges::stable_sort(loaded.runs, WatchedAbove, &WatchedRun::audit);
}

// A row as the cabinet writes one; nothing of its transaction is known.
bool TakeRow(std::string_view text, LoadedRuns& loaded) {
    if (text.size() > kRowFile.bytes) return false;
    json row = ParseForeignJson(text, kRowFile);
    if (!row.is_object() || JsonString(row, "type") != "arcade_score") return false;
    Evidence evidence;
    evidence.record = LookUp::kFound;
    evidence.row_state = RowState::kRow;
    evidence.row_bytes = text.size();
    evidence.row = std::move(row);
    loaded.runs.push_back(MakeRun(evidence, JudgeRow(evidence)));
    return true;
}

void LoadFile(const std::string& path, LoadedRuns& loaded) {
    std::string text;
    const std::string name = SafeText(path, kNameColumns);
    loaded.title = name;
    const FileState state = ReadFile(path, text, kMaxEvidenceBytes);
    if (state != FileState::kRead) {
        loaded.error = (state == FileState::kMissing ? "there is no file " : "cannot read ") + name;
        return;
    }
    if (TakeRow(text, loaded)) return;
    SavedEvidence saved;
    std::string why;
    if (!ReadEvidence(text, std::max(std::thread::hardware_concurrency(), 1u), saved, why)) {
        loaded.error = name + ": neither a row nor transactions that can be read";
        return;
    }
    if (!saved.scope.empty()) loaded.title = SafeText(saved.scope, kNameColumns);
    TakeRuns(saved, loaded);
    if (loaded.runs.empty()) loaded.error = name + ": no recorded score in it";
}

void LoadTransaction(const std::string& txid, const AuditProgress& progress, LoadedRuns& loaded) {
    const Collected collected = Collect({.kind = ScopeKind::kOne, .txid = txid}, progress);
    loaded.title = "transaction " + txid;
    TakeRuns(collected, loaded);
    if (!loaded.runs.empty()) return;
    const Evidence* const asked = collected.evidence.empty() ? nullptr : &collected.evidence.front();
    if (asked == nullptr || asked->record == LookUp::kFailed) {
        loaded.error = "the services do not answer for " + txid;
        if (asked != nullptr)
            loaded.error = SafeText(loaded.error + ": " + asked->record_error, kErrorColumns);
    } else if (asked->record == LookUp::kNone) {
        loaded.error = "no service knows the transaction " + txid;
    } else {
        loaded.error = "the transaction " + txid + " records no score";
    }
}

void LoadBoard(const std::string& kept_file, const AuditProgress& progress, LoadedRuns& loaded) {
    const int64_t week = WeekStart(UnixSeconds());
    const Collected collected = Collect({.kind = ScopeKind::kWeek, .week = week}, progress);
    loaded.title = "Week " + WeekLabel(week);
    if (collected.listed) {
        TakeRuns(collected, loaded);
        if (loaded.runs.empty()) loaded.error = "no scores posted yet in week " + WeekLabel(week);
        if (kept_file.empty()) return;
        const std::string text = WriteEvidence(collected);
        if (text.size() > kMaxEvidenceBytes || !ReplaceFile(kept_file, text))
            loaded.note = "cannot write " + SafeText(kept_file, kNameColumns);
        return;
    }
    const std::string why = "the services do not answer";
    if (kept_file.empty()) {
        loaded.error = why + "; a file of runs can be opened without them";
        return;
    }
    LoadFile(kept_file, loaded);
    (loaded.error.empty() ? loaded.note : loaded.error) =
        why + (loaded.error.empty() ? "; this is the list that was kept" : "; " + loaded.error);
}

}  // namespace

RunSource SourceOf(std::string_view argument) {
    if (IsTxidText(argument)) return {.txid = Lower(argument)};
    return {.file = std::string(argument)};
}

LoadedRuns LoadRuns(const RunSource& source, const AuditProgress& progress) {
    LoadedRuns loaded;
    try {
        if (!source.txid.empty()) {
            LoadTransaction(source.txid, progress, loaded);
        } else if (!source.file.empty()) {
            LoadFile(source.file, loaded);
        } else {
            LoadBoard(source.kept_file, progress, loaded);
        }
    } catch (const std::bad_alloc&) {
        loaded.error = "not enough memory for that";
    }
    if (!loaded.error.empty()) loaded.runs.clear();
    return loaded;
}

}  // namespace brickfall
