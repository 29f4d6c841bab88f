// How fast a recorded run is looked through and filmed. Off screen.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <vector>

#include "cabinet/theme.h"
#include "platform/window.h"
#include "tests/support/recorded_run.h"
#include "viewer/film_frames.h"
#include "viewer/scene.h"

namespace brickfall {
namespace {

constexpr uint64_t kHourTicks = 225'000;

double ProcessorMs() {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

std::unique_ptr<OpenRun> HourRun() {
    int64_t score = 0;
    WatchedRun run;
    run.tape = PlayedTape(kHourTicks, 1, score);
    return OpenRunOf(run);
}

void OpenAnHour(benchmark::State& state) {
    const std::unique_ptr<OpenRun> run = HourRun();
    for (auto _ : state) benchmark::DoNotOptimize(Course(*run->run.tape).LengthMs());
    state.counters["marks"] = static_cast<double>(run->course.Marks().size());
}
BENCHMARK(OpenAnHour)->Unit(benchmark::kMillisecond);

// To a place drawn anew each time, the picture included. Target: below 5 ms, each of them.
void SeekInAnHour(benchmark::State& state) {
    MakeTheme();
    const std::unique_ptr<OpenRun> run = HourRun();
    std::vector<double> milliseconds;
    uint64_t place = 1;
    DrawToImage({1'288, 1'044}, [&](Canvas& canvas) {
        for (auto _ : state) {
            place = place * 6'364'136'223'846'793'005u + 1'442'695'040'888'963'407u;
            const double start = ProcessorMs();
            PaintScene(canvas, SceneAt(run->course, (place >> 33) % (run->course.LengthMs() + 1), true), 0);
            milliseconds.push_back(ProcessorMs() - start);
        }
    });
    std::sort(milliseconds.begin(), milliseconds.end());
    state.counters["ms_median"] = milliseconds[milliseconds.size() / 2];
    state.counters["ms_p99"] = milliseconds[milliseconds.size() * 99 / 100];
    state.counters["ms_most"] = milliseconds.back();
}
BENCHMARK(SeekInAnHour)->Unit(benchmark::kMicrosecond);

// As the film's program gets them. A run of three minutes has 11,000.
void FilmPicture(benchmark::State& state) {
    MakeTheme();
    const std::unique_ptr<OpenRun> run = HourRun();
    FilmFrames frames(*run, nullptr, {.size = {1'280, 720}});
    std::size_t frame = 0;
    for (auto _ : state) benchmark::DoNotOptimize(frames.PaintYuv(frame++ % frames.Count()).data());
}
BENCHMARK(FilmPicture)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace brickfall

int main(int count, char** arguments) {
    ::setenv("QT_QPA_PLATFORM", "offscreen", /*overwrite=*/0);
    const brickfall::Platform platform(count, arguments);
    benchmark::Initialize(&count, arguments);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
