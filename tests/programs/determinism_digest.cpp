// determinism_digest.cpp - plays runs from fixed seeds and prints a line for each: what became of it, and
// digests of the states on the way and of its tape. Every build prints the same lines.
#include <cinttypes>
#include <cstdio>

#include "tests/game/golden_run.h"
#include "tests/game/random_run.h"

namespace {

using namespace brickfall;

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

}  // namespace

int main() {
    for (uint64_t seed = 1; seed <= 100; ++seed) Play(seed, 0, seed * 1'000);
    Play(101, 6, 0);
    return 0;
}
