// golden_runs DIR: plays the tape of each golden run of a folder, and names the first tick and field in which
// a run is no longer the one that is kept there. golden_runs --write DIR: plays and keeps the runs anew.
// golden_runs --play: plays runs from fixed seeds and prints a line for each: what became of it, and digests
// of the states on the way and of its tape. Every build prints the same lines.
#include <filesystem>
#include <fstream>
#include <set>

#include "tests/game/golden_run.h"
#include "tests/game/random_run.h"

namespace {

using namespace brickfall;
namespace fs = std::filesystem;

bool Write(const fs::path& folder, const std::string& name, uint64_t seed, int32_t level, uint64_t most_ms) {
    RunFixture play;
    std::mt19937_64 random(seed);
    PlayRandomRun(play, random, level, most_ms, [] {});
    std::ofstream file(folder / (name + ".run"), std::ios::binary);
    file << GoldenText(play.run.tape);
    return file.flush().good();
}

bool WriteAll(const fs::path& folder) {
    bool written = true;
    for (uint64_t seed = 1; seed <= 33; ++seed) {
        written &=
            Write(folder, (seed < 10 ? "run_0" : "run_") + std::to_string(seed), seed, 0, seed * 8'000);
    }
    for (const uint64_t level : {2u, 3u, 5u, 20u}) {
        written &= Write(folder, "level_" + std::to_string(level), level, static_cast<int32_t>(level), 0);
    }
    // What few runs have: a ball that the paddle catches at the last step, one that only touches its side.
    written &= Write(folder, "late_catch", 126, 0, 30'000);
    written &= Write(folder, "side_touch", 173, 0, 30'000);
    written &= Write(folder, "late_catch_side_touch", 528, 0, 30'000);
    return written;
}

std::string Difference(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string kept(std::istreambuf_iterator<char>(file), {});
    const std::size_t end = kept.find('\n');
    std::vector<uint8_t> bytes;
    InputTape tape;
    if (end == std::string::npos || !kept.starts_with("tape ") ||
        !HexToBytes(kept.substr(5, end - 5), bytes) || ReadTape(bytes, tape) != TapeFault::kNone)
        return "this is no golden run";
    return FirstDifference(kept, GoldenText(tape));
}

bool CheckAll(const fs::path& folder) {
    std::set<fs::path> paths;
    for (const auto& entry : fs::directory_iterator(folder)) paths.insert(entry.path());
    bool same = paths.size() >= 40;
    for (const fs::path& path : paths) {
        const std::string difference = Difference(path);
        if (difference.empty()) continue;
        same = false;
        std::printf("golden_runs: %s: %s\n", path.stem().c_str(), difference.c_str());
    }
    std::printf("golden_runs: %zu runs, %s\n", paths.size(),
                same ? "all as they are kept" : "not all as they are kept");
    return same;
}

void Play(uint64_t seed, int32_t level, uint64_t most_ms) {
    RunFixture play;
    std::mt19937_64 random(seed);
    uint64_t digest = kFnvStart;
    uint64_t looks = 0;
    PlayRandomRun(play, random, level, most_ms, [&] {
        if (level == 0 || ++looks % 64 == 0) digest = MixState(digest, play.run.game);
    });
    digest = MixState(digest, play.run.game);
    std::vector<uint8_t> bytes;
    SerializeTape(play.run.tape, bytes);
    uint64_t tape = kFnvStart;
    for (const uint8_t byte : bytes) tape = Mix(tape, byte, 1);
    std::printf("seed %" PRIu64 "  tick %" PRIu64 "  level %d  score %" PRId64
                "  events %zu  states %016" PRIx64 "  tape %016" PRIx64 "\n",
                seed, play.run.sim_clock_ms / kTickMs, play.run.game.level, play.run.final_score,
                play.run.tape.events.size(), digest, tape);
}

void PlayAll() {
    for (uint64_t seed = 1; seed <= 100; ++seed) Play(seed, 0, seed * 1'000);
    Play(101, 6, 0);
}

}  // namespace

int main(int count, char** arguments) {
    const std::string_view first = count > 1 ? arguments[1] : "";
    if (count == 3 && first == "--write") return WriteAll(arguments[2]) ? 0 : 1;
    if (count != 2) return 2;
    if (first != "--play") return CheckAll(first) ? 0 : 1;
    PlayAll();
    return 0;
}
