// determinism_digest.cpp - plays runs from fixed seeds and prints a line for each: what became of it, a
// digest of every state on the way, and the seal of its tape. Every build, on every machine, prints the same
// lines.
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "tests/game/random_run.h"

namespace {

using namespace brickfall;

// FNV-1a, 64 bits.
uint64_t Mix(uint64_t digest, uint64_t value) {
    for (int shift = 0; shift < 64; shift += 8) digest = (digest ^ (value >> shift & 255)) * 0x100000001b3u;
    return digest;
}

// Field by field, so that no byte order and no layout comes into it.
uint64_t MixState(uint64_t digest, const GameState& game) {
    for (const auto& row : game.bricks) {
        for (const uint8_t brick : row) digest = (digest ^ brick) * 0x100000001b3u;
    }
    const int64_t numbers[] = {game.level,    game.lives,    game.bricks_left, game.score,
                               game.paddle_x, game.paddle_w, game.ball_x,      game.ball_y,
                               game.ball_vx,  game.ball_vy,  game.cell_w,      game.cell_h};
    for (const int64_t number : numbers) digest = Mix(digest, static_cast<uint64_t>(number));
    const bool flags[] = {game.ball_live, game.left_held, game.right_held, game.paused, game.game_over};
    for (const bool flag : flags) digest = (digest ^ (flag ? 1u : 0u)) * 0x100000001b3u;
    return Mix(digest, game.last_step_ms);
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
