// manual_clock.h - a clock that only moves when a test says so, or by what the code under test sleeps.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

#include "base/clock.h"

namespace brickfall {

constexpr int64_t kClockStart = 1'790'000'000;  // in Unix seconds, where the clock begins

// Installs itself for its lifetime; the system clock comes back afterwards.
class ManualClock {
  public:
    explicit ManualClock(int64_t unix_seconds = kClockStart);
    ~ManualClock();
    ManualClock(const ManualClock&) = delete;
    ManualClock& operator=(const ManualClock&) = delete;

    void AdvanceMs(int64_t milliseconds) { passed_ms_ += milliseconds; }
    std::vector<int64_t> Sleeps() const;  // every sleep asked for, in milliseconds

    // Called at each sleep, after time has moved, with the milliseconds slept.
    std::function<void(int64_t)> on_sleep;

  private:
    static ManualClock& Self(void* self) { return *static_cast<ManualClock*>(self); }

    const int64_t start_ms_;
    std::atomic<int64_t> passed_ms_ = 0;
    mutable std::mutex mutex_;
    std::vector<int64_t> sleeps_;  // guarded by mutex_
    Clock clock_;
};

}  // namespace brickfall
