// Any text as an answer of the board's services, and as the settings document: ids have an id's length, a
// picture's address is https, and what is merged out of the document is a board.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "base/clock.h"
#include "board/faces.h"
#include "board/local_scores.h"
#include "deployment/sandbox_route.h"
#include "fuzz/support.h"
#include "game/week.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr int64_t kNow = 1'790'000'000;

// The entries count for one week, whenever the input is run.
void StopTheClock() {
    static Clock clock = SystemClock();
    clock.unix_millis = [](void*) { return kNow * 1'000; };
    InstallClock(&clock);
}

// What the document alone makes of a board.
void CheckMerge(const json& document) {
    const BoardSnapshot snapshot = TakeBoardSnapshot(document, {});
    std::vector<ScoreRow> rows;
    MergeWeek(snapshot, rows);
    Require(rows.size() <= kBoardRowCap);
    Require(std::is_sorted(rows.begin(), rows.end(),
                           [](const ScoreRow& a, const ScoreRow& b) { return a.score > b.score; }));
    for (const ScoreRow& row : rows) Require(row.score >= 1 && !row.verified);
    ScoreRow best;
    bool has_best = false;
    MergeBest(snapshot, best, has_best);
    Require(has_best || rows.empty());
    Require(rows.empty() || best.score >= rows[0].score);
}

void CheckRecord(json document) {
    int saves = 0;
    RecordLocalScore(document, 500, "t", [&saves] { ++saves; });
    Require(saves == 1);
    for (const json& entry : document.at("week_scores")) {
        Require(entry.is_object() && entry.at("week") == WeekStart(kNow));
    }
    Require(!document.at("week_scores").empty());
    Require(document.at("best_ever").at("score").get<int64_t>() >= 500);
}

}  // namespace
}  // namespace brickfall

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    using namespace brickfall;
    static const bool ready = (SetConnectRoute({"::127.0.0.1:1", "", 1}), StopTheClock(), true);
    static_cast<void>(ready);

    const std::string text(reinterpret_cast<const char*>(data), size);
    json answer = json::parse(text, nullptr, /*allow_exceptions=*/false);
    std::vector<std::string> ids;
    CollectTxids(answer, ids);
    for (const std::string& id : ids) Require(id.size() == 64);
    const std::string picture = AvatarOfProfile(answer);
    Require(picture.empty() || picture.starts_with("https://"));
    ChainRow row;
    Require(!ReadChainRow(answer, std::string(64, 'a'), row));  // nobody answers for a key
    CheckMerge(answer);
    CheckRecord(std::move(answer));  // a copy of deep nesting would end the stack
    return 0;
}
