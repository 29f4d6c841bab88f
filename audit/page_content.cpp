#include "audit/page_content.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

#include "audit/settlement_input.h"
#include "audit/settlement_report.h"
#include "base/clock.h"
#include "base/text.h"
#include "base/workers.h"
#include "board/watch_reader.h"
#include "messages/row.h"

namespace brickfall {

PageRun MakePageRun(const RowAudit& audit, std::string tape, std::string seal) {
    return {.name = RunName(audit),
            .txid = audit.txid,
            .verdict = VerdictLine(audit),
            .recorded = UtcText(audit.ts),
            .score = audit.score,
            .tape = std::move(tape),
            .seal = std::move(seal),
            .face_key = RunFaceKey(audit)};
}

std::vector<PageRun> PageRuns(const Collected& collected, const AuditReport& report) {
    std::map<std::string_view, const Evidence*> by_txid;
    for (const Evidence& evidence : collected.evidence) by_txid.emplace(evidence.txid, &evidence);
    std::vector<const RowAudit*> audits;
    for (const RowAudit& audit : report.rows) {
        if (audit.has_row) audits.push_back(&audit);
    }
    std::ranges::stable_sort(audits,
                             [](const RowAudit* a, const RowAudit* b) { return WatchedAbove(*a, *b); });
    std::vector<PageRun> runs;
    for (const RowAudit* const audit : audits) {
        std::string tape, seal;
        if (!audit->Has(Verdict::kAnotherGame)) {
            const Evidence& evidence = *by_txid.at(audit->txid);
            tape = JsonString(evidence.row, "tape");
            seal = JsonString(evidence.row, "tape_hash");
        }
        runs.push_back(MakePageRun(*audit, std::move(tape), std::move(seal)));
    }
    return runs;
}

void AddFaces(const FaceDecoder& decode, const std::function<std::string(const Image& face)>& encode,
              const AuditProgress& progress, std::vector<PageRun>& runs) {
    struct Player {
        std::string_view key;
        std::string face;
    };
    std::vector<Player> players;
    for (const PageRun& run : runs) {
        const bool is_new = std::ranges::find(players, run.face_key, &Player::key) == players.end();
        if (is_new && players.size() < kMostPageFaces) players.push_back({run.face_key, {}});
    }
    const int64_t until_ns = MonotonicNs() + kPageFacesNs;
    std::atomic<std::size_t> done = 0;
    progress("faces", 0, players.size());
    RunInParallel(players.size(), kPageFacesAtOnce, [&](std::size_t i) {
        try {
            std::optional<Image> face;
            if (MonotonicNs() < until_ns) face = LoadFace(std::string(players[i].key), decode);
            if (face) players[i].face = encode(*face);
        } catch (const std::bad_alloc&) {
            players[i].face.clear();
        }
        progress("faces", ++done, players.size());
    });
    for (PageRun& run : runs) {
        const auto player = std::ranges::find(players, run.face_key, &Player::key);
        if (player != players.end()) run.face = player->face;
    }
}

std::string PageReport(const AuditScope& scope, const Collected& collected, const AuditReport& report,
                       bool one_each) {
    std::string text = ReportText(report, /*coloured=*/false);
    if (scope.kind != ScopeKind::kWeek) return text;
    text += "\n";
    const char* missing = nullptr;
    if (collected.pot.week_start != scope.week) {
        missing = "what the pot was paid is not in the evidence";
    } else if (!collected.all_rows_listed) {
        missing = "not every record is listed";
    } else if (!collected.pot.all_listed) {
        missing = "not every payment to the pot is listed";
    }
    if (missing != nullptr)
        return text + "No settlement of " + WeekLabel(scope.week) + ": " + missing + ".\n";
    return text +
           SettlementText(SettleWeek(MakeSettlementInput(scope.week, collected, report.rows, one_each)));
}

}  // namespace brickfall
