// determinism_digest.cpp - plays runs from fixed seeds and prints a line for each: what became of it, a
// digest of every state on the way, and the seal of its tape. Every build prints the same lines.
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "tests/game/random_run.h"

namespace {

using namespace brickfall;

// FNV-1a, 64 bits, over every byte of the state, which has no padding.
uint64_t MixState(uint64_t digest, const GameState& game) {
    unsigned char bytes[sizeof game];
    std::memcpy(bytes, &game, sizeof game);
    for (const unsigned char byte : bytes) digest = (digest ^ byte) * 0x100000001b3u;
    return digest;
}

void Play(uint64_t seed, int32_t level, uint64_t most_ms) {
    RunFixture play;
    std::mt19937_64 random(seed);
    uint64_t digest = 0xcbf29ce484222325u;
    uint64_t firings = 0;
    PlayRandomRun(play, random, level, most_ms, [&] {
        if (level == 0 || ++firings % 64 == 0) digest = MixState(digest, play.run.game);
    });
    digest = MixState(digest, play.run.game);
    std::printf("seed %" PRIu64 "  tick %" PRIu64 "  level %d  score %" PRId64
                "  events %zu  states %016" PRIx64 "  tape %s\n",
                seed, play.run.sim_clock_ms / kTickMs, play.run.game.level, play.run.final_score,
                play.run.tape.events.size(), digest, TapeHash(TapeToHex(play.run.tape)).c_str());
}

}  // namespace

int main() {
    for (uint64_t seed = 1; seed <= 100; ++seed) Play(seed, 0, seed * 1'000);
    Play(101, 6, 0);
    return 0;
}
