#include "players/person.h"

#include <algorithm>
#include <cstdlib>
#include <random>
#include <utility>

#include "game/simulation.h"
#include "players/autopilot.h"

namespace brickfall {
namespace {

constexpr uint64_t kTiredLapses = 900;  // of 1,000
constexpr int kPlacesWeighed = 4;       // for one bounce
constexpr int kDullFalls = 6;           // in a row without a brick: the ball may go round for ever

enum class Phase { kNone, kResting, kAway, kFalling };

Phase PhaseOf(const GameState& game) {
    if (!game.ball_live) return Phase::kResting;
    const bool is_falling = game.ball_vy > 0 && game.ball_y >= kBrickBottom + kBallHalf;
    return is_falling ? Phase::kFalling : Phase::kAway;
}

class Hands {
  public:
    Hands(const Person& person, int32_t cell_w, int32_t cell_h)
        : person_(person), random_(person.seed), game_(NewGame(cell_w, cell_h)) {
        ResetTape(run_.tape, cell_w, cell_h);
    }

    PlayedRun Play() {
        while (true) {
            clock_ms_ += kTickMs;
            StepGame(game_, clock_ms_);
            if (game_.game_over) break;
            Act();
        }
        AppendEvent(run_.tape, clock_ms_, kInputEnd);
        run_.score = game_.score;
        return std::move(run_);
    }

  private:
    uint64_t Ticks(uint64_t least, uint64_t spread) { return (least + random_() % spread) * kTickMs; }

    void Give(uint8_t code) {
        if (ApplyInput(game_, code)) AppendEvent(run_.tape, clock_ms_, code);
    }

    // Holds the key for so long, and looks again a while later.
    void Press(bool left, uint64_t ticks) {
        Give(left ? kInputLeftDown : kInputRightDown);
        up_code_ = left ? kInputLeftUp : kInputRightUp;
        up_ms_ = clock_ms_ + ticks * kTickMs;
        act_ms_ = up_ms_ + Ticks(person_.reaction, 8);
    }

    void Act() {
        if (const Phase phase = PhaseOf(game_); phase != phase_) {
            phase_ = phase;
            has_aimed_ = false;
            act_ms_ = clock_ms_ + (phase == Phase::kResting ? Ticks(40, 80) : Ticks(person_.reaction, 8));
        }
        if (up_code_ != 0 && clock_ms_ >= up_ms_) {
            Give(up_code_);
            up_code_ = 0;
        }
        if (up_code_ != 0 || clock_ms_ < act_ms_) return;
        if (phase_ == Phase::kResting) {
            Give(kInputServe);
        } else if (phase_ == Phase::kFalling) {
            MeetBall();
        } else if (dull_falls_ >= kDullFalls) {
            Press(random_() % 2 == 0,
                  1 + random_() % autopilot::kStepsAcross);  // comes back to another place
        } else if (person_.is_restless) {
            Press(random_() % 2 == 0, 1 + random_() % 3);
            act_ms_ += Ticks(20, 30);
        }
    }

    // The first press is as clumsy as the person is, each one that corrects it half as clumsy.
    void MeetBall() {
        if (!has_aimed_) {
            has_aimed_ = true;
            const int hits_left = autopilot::HitsLeft(game_);
            dull_falls_ = hits_left == hits_left_ ? dull_falls_ + 1 : 0;
            hits_left_ = hits_left;
            aim_ = Aim();
            clumsiness_ = person_.clumsiness;
        }
        const int32_t speed = autopilot::PaddleSpeed(game_);
        const int32_t away = aim_ - game_.paddle_x;
        const auto steps = static_cast<uint32_t>((std::abs(away) + speed / 2) / speed);
        if (steps == 0) return;
        const auto slip = static_cast<uint32_t>(random_() % (2 * clumsiness_ + 1));
        Press(away < 0, std::max(steps + slip, clumsiness_ + 1) - clumsiness_);
        clumsiness_ /= 2;
    }

    // Where the paddle should go. The last ball has the whole attention of whoever is not tired.
    int32_t Aim() {
        const GameState landing = autopilot::FallToPaddle(game_);
        const int32_t limit = kFieldW - game_.paddle_w;
        const int32_t centre = landing.ball_x - game_.paddle_w / 2;
        const bool is_tired = game_.score >= person_.tires_at;
        const uint64_t lapses = is_tired ? kTiredLapses : game_.lives > 1 ? person_.lapses : 0;
        if (random_() % 1'000 < lapses) return centre + (centre < limit / 2 ? 1 : -1) * game_.paddle_w;
        const int32_t reach = std::max(game_.paddle_w / 2 - 3 * autopilot::PaddleSpeed(game_) / 2, 1);
        int32_t place = centre;
        for (int i = 0; i < kPlacesWeighed; ++i) {
            const auto offset = static_cast<int32_t>(random_() % static_cast<uint64_t>(2 * reach + 1));
            place = std::clamp(centre + offset - reach, 0, limit);
            if (autopilot::BounceHitsABrick(landing, place)) break;
        }
        return place;
    }

    const Person& person_;
    std::mt19937_64 random_;
    GameState game_;
    PlayedRun run_;
    uint64_t clock_ms_ = 0;
    uint64_t act_ms_ = 0;  // nothing is done before
    uint64_t up_ms_ = 0;   // the key that is down comes up
    uint8_t up_code_ = 0;  // of that key; 0: none is down
    Phase phase_ = Phase::kNone;
    bool has_aimed_ = false;  // at this fall
    int32_t aim_ = 0;         // the paddle's left edge
    uint32_t clumsiness_ = 0;
    int hits_left_ = 0;  // at the last fall
    int dull_falls_ = 0;
};

}  // namespace

PlayedRun PlayAsPerson(const Person& person, int32_t cell_w, int32_t cell_h) {
    return Hands(person, cell_w, cell_h).Play();
}

}  // namespace brickfall
