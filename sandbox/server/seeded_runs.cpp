#include "sandbox/server/seeded_runs.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "game/input_tape.h"

namespace brickfall::sandbox {
namespace {

constexpr int64_t kLeastBeforeRecord = 600;  // seconds from entry to record
constexpr int64_t kAroundRun = 60;           // the same that are not played

constexpr Player kPlayers[] = {
    {"mirabel", "mirabel.png", Picture::kWebAddress, 44, {.reaction = 12, .clumsiness = 1, .lapses = 4}},
    {"oskar_t", "oskar_t.jpg", Picture::kWebAddress, 36, {.reaction = 15}},
    {"yuna", "yuna.webp", Picture::kWebAddress, 40, {.reaction = 11, .lapses = 6}},
    {"brickwitch", "brickwitch.png", Picture::kInscription, 48, {.reaction = 10, .clumsiness = 1}},
    {"jonas", "jonas.jpg", Picture::kInscription, 32, {.reaction = 18, .clumsiness = 3, .lapses = 20}},
    {"low-orbit", "low-orbit.webp", Picture::kInscription, 42, {.reaction = 13, .lapses = 5}},
    {"tove", "tove.png", Picture::kWebAddress, 38, {}},
    {"halfpint", "halfpint.webp", Picture::kInscription, 28, {.reaction = 19, .clumsiness = 4, .lapses = 40}},
    {"noor", "", Picture::kNone, 34, {.reaction = 12, .clumsiness = 3, .lapses = 8, .is_restless = true}},
    {"zed", "", Picture::kNone, 30, {.reaction = 22, .clumsiness = 4, .lapses = 60}},
    {"quill", "", Picture::kNone, 33, {.reaction = 16, .clumsiness = 3, .lapses = 25}},
    {"marguerite-of-the-upper-arcade", "", Picture::kNone, 46, {.reaction = 17, .clumsiness = 1}},
    {"tall-tale", "", Picture::kNone, 35, {.reaction = 18, .clumsiness = 3, .lapses = 30}},
    {"magpie", "", Picture::kNone, 41, {}},
    {"cuckoo", "", Picture::kNone, 37, {}},
    {"changeling", "", Picture::kNone, 39, {.reaction = 13}},
    {"ghost-hand", "", Picture::kNone, 31, {.reaction = 20, .clumsiness = 3, .lapses = 30}},
};

struct Run {
    std::string_view player;
    int64_t tires_at;
    Flaw flaw = Flaw::kNone;
    int64_t added = 0;  // points that were not played
};

constexpr Run kFormerWeek[] = {
    {"zed", 300},           {"noor", 3'000},
    {"jonas", 9'000},       {"mirabel", 31'200},
    {"tove", 6'200},        {"yuna", 20'400},
    {"brickwitch", 14'700}, {"marguerite-of-the-upper-arcade", 11'800},
    {"halfpint", 1'700},    {"low-orbit", 17'500},
};

// Ten that are far ahead; a beginner's run finds its place below them. A row with a flaw that the board does
// not see stands half-way between its neighbours, below these ten.
constexpr Run kThisWeek[] = {
    {"yuna", 2'800},
    {"zed", 60},
    {"mirabel", 12'400},
    {"jonas", 200, Flaw::kForeignKey, 64'000},
    {"tove", 200},
    {"quill", 290},
    {"tall-tale", 150, Flaw::kRaisedScore, 1'500},
    {"jonas", 320},
    {"noor", 6'600},
    {"brickwitch", 18'800},
    {"zed", 200, Flaw::kBentScore},
    {"halfpint", 250},
    {"cuckoo", 1'000, Flaw::kUsedEntry},
    {"zed", 260},
    {"oskar_t", 280},
    {"marguerite-of-the-upper-arcade", 9'700},
    {"low-orbit", 22'300},
    {"quill", 200, Flaw::kOtherGame, 71'000},
    {"tove", 7'100},
    {"changeling", 2'000, Flaw::kOtherSeal},
    {"yuna", 15'000},
    {"noor", 300},
    {"ghost-hand", 500, Flaw::kHandMadeEvent},
    {"halfpint", 2'000},
    {"magpie", 0, Flaw::kCopiedTape},
    {"mirabel", 310},
    {"noor", 33'000, Flaw::kTooLong},
    {"jonas", 1'300},
    {"zed", 150},
    {"brickwitch", 27'400},
    {"quill", 220},
    {"oskar_t", 10'900},
    {"low-orbit", 8'300},
};

bool IsBetween(const Run& run) { return run.flaw >= Flaw::kRaisedScore; }

// A second serve on the tick of the first: the ball is in flight, so that the game would not have taken it.
void ServeTwice(InputTape& tape) {
    const auto serve = std::ranges::find(tape.events, uint8_t{kInputServe}, &InputEvent::code);
    if (serve != tape.events.end()) tape.events.insert(serve, InputEvent(*serve));
}

std::vector<SeededRun> PlayWeek(std::span<const Run> runs, int64_t week, int64_t end) {
    const int64_t full_steps = std::ranges::count_if(runs, [](const Run& run) { return !IsBetween(run); });
    int64_t half_steps = 0;
    auto seed = static_cast<uint64_t>(week);
    PlayedRun played;
    std::vector<SeededRun> rows;
    for (const Run& run : runs) {
        const Player& player = *std::ranges::find(kPlayers, run.player, &Player::name);
        if (run.flaw == Flaw::kCopiedTape) {
            played.tape.cell_w = played.tape.cell_h = static_cast<uint16_t>(player.cell);
        } else {
            Person person = player.person;
            person.seed = ++seed;
            person.tires_at = run.tires_at;
            played = PlayAsPerson(person, player.cell, player.cell);
        }
        const int64_t length = played.tape.events.back().tick_ms / 1'000;
        if (run.flaw == Flaw::kHandMadeEvent) ServeTwice(played.tape);
        half_steps += IsBetween(run) ? 1 : 2 - half_steps % 2;

        SeededRun row;
        row.player = player.name;
        row.flaw = run.flaw;
        row.week = week;
        row.record_time = week + (end - week) * half_steps / (2 * (full_steps + 1));
        row.entry_time = row.record_time - std::max(kLeastBeforeRecord, length + kAroundRun);
        row.score = played.score + run.added;
        row.tape = TapeToHex(played.tape);
        row.seal = run.flaw == Flaw::kOtherSeal ? rows.back().seal : TapeHash(row.tape);
        rows.push_back(std::move(row));
    }
    return rows;
}

}  // namespace

std::span<const Player> SeededPlayers() { return kPlayers; }

std::vector<SeededRun> PlayFormerWeek(int64_t week, int64_t end) { return PlayWeek(kFormerWeek, week, end); }
std::vector<SeededRun> PlayThisWeek(int64_t week, int64_t end) { return PlayWeek(kThisWeek, week, end); }

}  // namespace brickfall::sandbox
