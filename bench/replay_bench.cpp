// What it costs to play a tape again.
#include <benchmark/benchmark.h>

#include "game/replay.h"
#include "tools/autopilot.h"

namespace {

using namespace brickfall;

// A run that the autopilot plays for `ticks`, and then loses.
InputTape PlayedTape(uint64_t ticks) {
    InputTape tape;
    ResetTape(tape, 32, 32);
    GameState game = NewGame(32, 32);
    uint64_t now_ms = 0;
    const auto input = [&](bool wanted, bool held, uint8_t down, uint8_t up) {
        if (wanted == held) return;
        ApplyInput(game, wanted ? down : up);
        AppendEvent(tape, now_ms, wanted ? down : up);
    };
    while (!game.game_over) {
        StepGame(game, now_ms += kTickMs);
        if (game.game_over) break;
        const AutopilotKeys keys = now_ms / kTickMs < ticks ? AutopilotPlay(game) : AutopilotLose(game);
        input(keys.left, game.left_held, kInputLeftDown, kInputLeftUp);
        input(keys.right, game.right_held, kInputRightDown, kInputRightUp);
        if (keys.serve && ApplyInput(game, kInputServe)) AppendEvent(tape, now_ms, kInputServe);
    }
    AppendEvent(tape, now_ms, kInputEnd);
    return tape;
}

void ReplayOneHour(benchmark::State& state) {
    const InputTape tape = PlayedTape(225'000);
    uint64_t steps = 0;
    for (auto _ : state) {
        Replay replay(tape);
        replay.GoTo(Replay::kToTheEnd);
        if (replay.End() != ReplayEnd::kLost) state.SkipWithError("no run");
        steps = replay.TickMs() / kTickMs;
        benchmark::DoNotOptimize(replay.Game());
    }
    state.counters["steps"] = static_cast<double>(steps);
    state.counters["steps_per_s"] = benchmark::Counter(
        static_cast<double>(steps) * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["events"] = static_cast<double>(tape.events.size());
}
BENCHMARK(ReplayOneHour)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
