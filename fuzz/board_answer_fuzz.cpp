// Any text as an answer of the board's services, as the settings document, as a script and a row: ids have an
// id's length, a picture's address is https, what is merged out of the document is a board, a payload is a
// part of its script, a row's canonical string depends on its value alone, and nothing unsigned is accepted.
#include <utility>
#include <vector>

#include "base/foreign_json.h"
#include "base/text.h"
#include "board/faces.h"
#include "board/local_scores.h"
#include "board/watch_reader.h"
#include "deployment/sandbox_route.h"
#include "fuzz/support.h"
#include "game/week.h"
#include "messages/row.h"
#include "messages/verification.h"
#include "wallet/protocol/encodings.h"

namespace {

using namespace brickfall;
using nlohmann::json;

// What the document alone makes of a board, and a record of the document.
void CheckDocument(json document) {
    const BoardSnapshot snapshot = TakeBoardSnapshot(document, {});
    std::vector<ScoreRow> rows;
    MergeWeek(snapshot, rows);
    Require(rows.size() <= kBoardRowCap);
    for (const ScoreRow& row : rows) Require(row.score >= 1 && !row.verified);
    ScoreRow best;
    bool has_best = false;
    MergeBest(snapshot, best, has_best);
    Require(rows.empty() || (has_best && best.score >= rows[0].score));

    RecordLocalScore(document, 500, "t", [] {});
    for (const json& entry : document.at("week_scores")) Require(entry.at("week") == WeekStart(kFuzzNow));
    Require(document.at("best_ever").at("score").get<int64_t>() >= 500);
}

void CheckScript(const std::string& script) {
    std::string payload;
    if (ExtractPushPayload(script, payload)) {
        Require(!payload.empty() && payload.size() <= 65'535);
        Require(Lower(script).find(HexEncode(AsBytes(payload))) != std::string::npos);
    } else {
        Require(payload.empty());
    }
    json row;
    if (FindScorePayload({{"vout", {{{"hex", script}}}}}, row)) {
        Require(row.is_object() && json::parse(payload) == row);
    }
}

void CheckRow(const json& row) {
    const std::string canonical = CanonicalMessage(row);
    Require(canonical.starts_with("OV1|"));
    const json again = json::parse(DumpRow(row), nullptr, /*allow_exceptions=*/false);
    Require(again == row && CanonicalMessage(again) == canonical);
    Require(!VerifyMessage(row));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static const bool ready = (SetConnectRoute({"::127.0.0.1:1", "", 1}), StopClock(), true);
    static_cast<void>(ready);
    const CostBound cost(30'000, size, 400);

    const std::string text(AsText(data, size));
    CheckScript(text);
    CheckScript(HexEncode({data, size}));
    json answer = json::parse(text, nullptr, /*allow_exceptions=*/false);
    std::vector<std::string> ids;
    CollectTxids(answer, ids);
    for (const std::string& id : ids) Require(id.size() == 64);
    const std::string picture = AvatarOfProfile(answer);
    Require(picture.empty() || picture.starts_with("https://"));
    ChainRow row;
    Require(!ReadChainRow(answer, std::string(64, 'a'), row));  // nobody answers for a key
    // A row that is nested deeper is never read.
    if (!answer.is_discarded() && IsWithinLimits(text, {.bytes = size, .values = size})) CheckRow(answer);
    CheckDocument(std::move(answer));  // a copy of deep nesting would end the stack
    return 0;
}
