// golden_runs DIR: plays the tape of each golden run of a folder, and names the first tick and field in which
// a run is no longer the one that is kept there. golden_runs --write DIR: plays and keeps the runs anew.
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
    for (uint64_t seed = 1; seed <= 36; ++seed) {
        written = written &&
                  Write(folder, (seed < 10 ? "run_0" : "run_") + std::to_string(seed), seed, 0, seed * 8'000);
    }
    for (const int32_t level : {2, 3, 5, 20}) {
        written = written &&
                  Write(folder, "level_" + std::to_string(level), static_cast<uint64_t>(level), level, 0);
    }
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

}  // namespace

int main(int count, char** arguments) {
    const bool writes = count == 3 && std::string_view(arguments[1]) == "--write";
    if (count != 2 && !writes) return 2;
    if (writes) return WriteAll(arguments[2]) ? 0 : 1;
    std::set<fs::path> paths;
    for (const auto& entry : fs::directory_iterator(arguments[1])) paths.insert(entry.path());
    bool same = paths.size() >= 40;
    for (const fs::path& path : paths) {
        const std::string difference = Difference(path);
        if (difference.empty()) continue;
        same = false;
        std::printf("golden_runs: %s: %s\n", path.stem().c_str(), difference.c_str());
    }
    std::printf("golden_runs: %zu runs, %s\n", paths.size(),
                same ? "all as they are kept" : "not all as they are kept");
    return same ? 0 : 1;
}
