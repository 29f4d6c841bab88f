// What it costs to play a tape again: an hour as it is played, and the worst that a stranger can send.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <optional>

#include "game/replay.h"
#include "players/autopilot.h"

namespace {

using namespace brickfall;

// A run that writes its tape, a tick at a time.
struct TapedRun {
    TapedRun() { ResetTape(tape, 32, 32); }
    void Step() { StepGame(game, now_ms += kTickMs); }
    void Input(uint8_t code) {
        if (ApplyInput(game, code)) AppendEvent(tape, now_ms, code);
    }
    void Hold(AutopilotKeys keys) {
        if (keys.left != game.left_held) Input(keys.left ? kInputLeftDown : kInputLeftUp);
        if (keys.right != game.right_held) Input(keys.right ? kInputRightDown : kInputRightUp);
        if (keys.serve) Input(kInputServe);
    }

    GameState game = NewGame(32, 32);
    InputTape tape;
    uint64_t now_ms = 0;
};

// A run that the autopilot plays for `ticks`, and then loses.
InputTape PlayedTape(uint64_t ticks) {
    TapedRun run;
    for (run.Step(); !run.game.game_over; run.Step()) {
        run.Hold(run.now_ms / kTickMs < ticks ? AutopilotPlay(run.game) : AutopilotLose(run.game));
    }
    run.Input(kInputEnd);
    return run.tape;
}

// The run with a key held for so many ticks, if the paddle is then where the ball comes back to it for ever.
std::optional<TapedRun> ParkedForEver(TapedRun run, AutopilotKeys keys, int ticks_held) {
    run.Hold(keys);
    for (int tick = 0; tick < ticks_held; ++tick) run.Step();
    run.Hold({});
    GameState ahead = run.game;
    for (int tick = 0; tick < 100'000; ++tick) StepGame(ahead, ahead.last_step_ms + kTickMs);
    const GameState settled = ahead;
    for (int tick = 0; tick < 1'000'000; ++tick) StepGame(ahead, ahead.last_step_ms + kTickMs);
    const bool for_ever = ahead.ball_live && ahead.level == run.game.level && ahead.lives == run.game.lives &&
                          autopilot::HitsLeft(ahead) == autopilot::HitsLeft(settled);
    return for_ever ? std::optional(std::move(run)) : std::nullopt;
}

// A full tape that lasts as long as a tape can say, nearly all of it a flight between a few bricks.
InputTape LongestTape() {
    constexpr uint64_t kLastTickMs = (uint64_t{1} << 32) - kTickMs;
    TapedRun run;
    for (std::optional<TapedRun> parked; !parked; run.Step()) {
        if (run.game.ball_y == kBounceY && run.game.ball_vy < 0) {
            for (int ticks = 0; ticks <= 20 && !parked; ++ticks) {
                parked = ParkedForEver(run, {.left = true}, ticks);
                if (!parked) parked = ParkedForEver(run, {.right = true}, ticks);
            }
            if (parked) run = *parked;
        }
        if (!parked) run.Hold(AutopilotPlay(run.game));
    }
    const uint64_t from_ms = run.now_ms;
    const std::size_t from = run.tape.events.size();
    while (run.tape.events.size() < kTapeMaxEvents) {
        const uint64_t share_ms = (kLastTickMs - from_ms) / (kTapeMaxEvents - from);
        run.now_ms = from_ms + (run.tape.events.size() - from) * share_ms / kTickMs * kTickMs;
        if (run.tape.events.size() + 2 >= kTapeMaxEvents) run.now_ms = kLastTickMs;
        const bool down = (run.tape.events.size() - from) % 2 == 0;
        AppendEvent(run.tape, down ? run.now_ms : run.tape.events.back().tick_ms,
                    down ? kInputLeftDown : kInputLeftUp);
    }
    return run.tape;
}

void ReplayTape(benchmark::State& state, const InputTape& tape, ReplayEnd expected) {
    std::vector<uint8_t> bytes;
    SerializeTape(tape, bytes);
    uint64_t steps = 0;
    for (auto _ : state) {
        InputTape read;
        if (ReadTape(bytes, read) != TapeFault::kNone) state.SkipWithError("no tape");
        Replay replay(read);
        replay.GoTo(Replay::kToTheEnd);
        if (replay.End() != expected) state.SkipWithError(ReplayEndText(replay).c_str());
        steps = replay.TickMs() / kTickMs;
        benchmark::DoNotOptimize(replay.Game());
    }
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    state.counters["steps"] = static_cast<double>(steps);
    state.counters["steps_per_s"] = benchmark::Counter(
        static_cast<double>(steps) * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["events"] = static_cast<double>(tape.events.size());
    state.counters["peak_mb"] = static_cast<double>(usage.ru_maxrss) / 1024;
}

void ReplayOneHour(benchmark::State& state) { ReplayTape(state, PlayedTape(225'000), ReplayEnd::kLost); }
BENCHMARK(ReplayOneHour)->Unit(benchmark::kMillisecond);

void ReplayLongestTape(benchmark::State& state) { ReplayTape(state, LongestTape(), ReplayEnd::kFull); }
BENCHMARK(ReplayLongestTape)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
