// Any bytes as a tape: what is read is the one tape of these bytes and holds what a run holds to; and its
// replay comes to a verdict, the same from wherever it is reached, in the state that steps taken one by one
// lead to.
#include <algorithm>
#include <vector>

#include "fuzz/support.h"
#include "game/replay.h"

namespace {

using namespace brickfall;

constexpr uint64_t kLongestMs = 100'000 * kTickMs;  // beyond it nothing is played, for the fuzzer's own time

bool HoldsToTheRules(const InputTape& tape) {
    bool holds = tape.start_lives == 3 && tape.events.size() <= 200'000;
    for (std::size_t i = 0; i < tape.events.size(); ++i) {
        const auto [tick_ms, code] = tape.events[i];
        holds &= tick_ms % 16 == 0 && (i == 0 || tick_ms >= tape.events[i - 1].tick_ms);
        holds &= code == 1 || code == 2 || code == 7 || code == 9 || code == 10 ||
                 (code == 255 && i + 1 == tape.events.size());
    }
    return holds;
}

void CheckStepByStep(const Replay& replay, const InputTape& tape) {
    GameState game = NewGame(tape.cell_w, tape.cell_h);
    std::size_t next = 0;
    for (uint64_t tick_ms = 0; tick_ms <= replay.TickMs(); tick_ms += kTickMs) {
        if (tick_ms > 0) StepGame(game, tick_ms);
        for (; next < replay.NextEvent() && tape.events[next].tick_ms == tick_ms; ++next) {
            Require(ApplyInput(game, tape.events[next].code));
        }
    }
    Require(next == replay.NextEvent() && game == replay.Game());
}

void CheckReplay(const InputTape& tape) {
    Replay replay(tape);
    replay.GoTo(kLongestMs);
    CheckStepByStep(replay, tape);
    if (!tape.events.empty() && tape.events.back().tick_ms > kLongestMs) return;
    replay.GoTo(Replay::kToTheEnd);
    Require(replay.End() != ReplayEnd::kNone && !ReplayEndText(replay).empty());
    const uint64_t end_ms = replay.TickMs();
    const ReplayEnd end = replay.End();
    const GameState game = replay.Game();
    replay.GoTo(end_ms / 2);
    CheckStepByStep(replay, tape);
    replay.GoTo(Replay::kToTheEnd);
    Require(replay.End() == end && replay.TickMs() == end_ms && replay.Game() == game);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const CostBound cost(1'000, size, 8);
    InputTape tape;
    const TapeFault fault = ReadTape({data, size}, tape);
    std::vector<uint8_t> bytes;
    SerializeTape(tape, bytes);
    const bool same = std::equal(bytes.begin(), bytes.end(), data, data + size);
    Require((fault == TapeFault::kNone) == (same && HoldsToTheRules(tape)));
    Require((fault == TapeFault::kNone) == (*TapeFaultText(fault) == 0));
    // What is read of a bad one stands at its front.
    if (size >= kTapeHeaderBytes) Require(std::equal(bytes.begin() + 10, bytes.end(), data + 10));
    if (fault == TapeFault::kNone) CheckReplay(tape);
    return 0;
}
