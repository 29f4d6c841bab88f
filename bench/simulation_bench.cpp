// What a step costs in a game as it is played, and what catching up after a long stall costs.
#include <benchmark/benchmark.h>

#include <vector>

#include "game/run_control.h"
#include "players/autopilot.h"
#include "tests/support/manual_clock.h"

namespace {

using namespace brickfall;

constexpr int kTicks = 1'000'000;
constexpr int64_t kHourMs = 3'600'000;

void HoldKeys(GameState& game, AutopilotKeys keys) {
    game.left_held = keys.left;
    game.right_held = keys.right;
    if (keys.serve) ServeBall(game);
}

// What the autopilot holds on each tick, found beforehand, so that only steps are measured.
std::vector<AutopilotKeys> AutopilotRun() {
    std::vector<AutopilotKeys> keys;
    GameState game = NewGame(32, 32);
    for (uint64_t tick = 0; tick < kTicks; ++tick) {
        keys.push_back(AutopilotPlay(game));
        HoldKeys(game, keys.back());
        StepGame(game, (tick + 1) * kTickMs);
    }
    return keys;
}

void StepAutopilotRun(benchmark::State& state) {
    const std::vector<AutopilotKeys> keys = AutopilotRun();
    GameState game;
    for (auto _ : state) {
        game = NewGame(32, 32);
        uint64_t now_ms = 0;
        for (const AutopilotKeys& held : keys) {
            HoldKeys(game, held);
            StepGame(game, now_ms += kTickMs);
        }
        benchmark::DoNotOptimize(game);
    }
    state.SetItemsProcessed(state.iterations() * kTicks);
    state.counters["per_step"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * kTicks,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["level"] = game.level;
}
BENCHMARK(StepAutopilotRun)->Unit(benchmark::kMillisecond);

// A paddle as wide as the field and bricks that outlast it keep the ball in flight for the whole hour.
void CatchUpOneHour(benchmark::State& state) {
    ManualClock clock;
    RunDriver driver;
    driver.refresh_layout = [] { return CellSize{32, 32}; };
    driver.start_heartbeat = driver.focus_main = driver.invalidate_well = [] {};
    driver.enable_control = [](int, bool) {};
    driver.set_status = [](std::string_view) {};
    RunControl run;
    for (auto _ : state) {
        state.PauseTiming();
        StartRun(run, driver);
        run.game.paddle_x = 0;
        run.game.paddle_w = kFieldW;
        for (auto& row : run.game.bricks) {
            for (uint8_t& brick : row) brick = 255;
        }
        ServeBall(run.game);
        clock.AdvanceMs(kHourMs);
        state.ResumeTiming();
        CatchUp(run, driver);
    }
    if (run.sim_clock_ms != static_cast<uint64_t>(kHourMs))
        state.SkipWithError("the run did not last the hour");
}
BENCHMARK(CatchUpOneHour)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
