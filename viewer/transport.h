// transport.h - where in a run the viewer is, and how fast it goes on. Pure.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>

#include "game/simulation.h"

namespace brickfall {

// In eighths of the speed of play.
inline constexpr int kSpeeds[] = {1, 2, 4, 8, 16, 32, 64, 128, 256, 512};
inline constexpr int kSpeedOfPlay = 3;  // its place among them

class Transport {
  public:
    explicit Transport(uint64_t length_ms = 0) : length_ms_(length_ms) {}

    bool Playing() const { return playing_; }
    bool AtEnd() const { return at_eighths_ / 8 >= length_ms_; }
    uint64_t TickMs() const { return at_eighths_ / 8 / kTickMs * kTickMs; }
    int Speed() const { return speed_; }
    std::string SpeedText() const {  // "1/8", "1", "64"
        const int eighths = kSpeeds[speed_];
        return eighths < 8 ? "1/" + std::to_string(8 / eighths) : std::to_string(eighths / 8);
    }

    // From the end it begins anew.
    void PlayOrPause() {
        if (!playing_ && AtEnd()) at_eighths_ = 0;
        playing_ = !playing_;
    }
    void Pause() { playing_ = false; }
    void Faster() { speed_ = std::min(speed_ + 1, static_cast<int>(std::size(kSpeeds)) - 1); }
    void Slower() { speed_ = std::max(speed_ - 1, 0); }

    // Time passes while it plays. True when the end has just been reached; it stops there.
    bool Pass(uint64_t milliseconds) {
        if (!playing_) return false;
        at_eighths_ += milliseconds * static_cast<uint64_t>(kSpeeds[speed_]);
        if (!AtEnd()) return false;
        GoTo(length_ms_);
        playing_ = false;
        return true;
    }
    void GoTo(uint64_t tick_ms) { at_eighths_ = std::min(tick_ms, length_ms_) * 8; }
    // By whole ticks, and it stops.
    void Step(int64_t ticks) {
        playing_ = false;
        const auto to = static_cast<int64_t>(TickMs()) + ticks * static_cast<int64_t>(kTickMs);
        GoTo(static_cast<uint64_t>(std::max<int64_t>(to, 0)));
    }

  private:
    uint64_t length_ms_;
    uint64_t at_eighths_ = 0;  // of a millisecond, so that the slowest goes on with every one
    int speed_ = kSpeedOfPlay;
    bool playing_ = false;
};

}  // namespace brickfall
