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
    explicit ManualClock(int64_t unix_seconds = kClockStart) : start_ms_(unix_seconds * 1000) {
        clock_.self = this;
        clock_.unix_millis = [](void* self) {
            return Self(self).start_ms_ + Self(self).passed_ms_ + Self(self).jumped_ms_;
        };
        clock_.monotonic_ns = [](void* self) { return (1'000'000 + Self(self).passed_ms_) * 1'000'000; };
        clock_.tick_ms = [](void* self) { return static_cast<uint64_t>(1'000'000 + Self(self).passed_ms_); };
        clock_.sleep_ms = [](void* self, int64_t milliseconds) { Self(self).Sleep(milliseconds); };
        InstallClock(&clock_);
    }
    ~ManualClock() { InstallClock(nullptr); }
    ManualClock(const ManualClock&) = delete;
    ManualClock& operator=(const ManualClock&) = delete;

    void AdvanceMs(int64_t milliseconds) { passed_ms_ += milliseconds; }

    // Somebody sets the time of day; no time passes.
    void JumpMs(int64_t milliseconds) { jumped_ms_ += milliseconds; }

    // Every sleep asked for, in milliseconds.
    std::vector<int64_t> Sleeps() const {
        const std::lock_guard lock(mutex_);
        return sleeps_;
    }

    // Called at each sleep, after time has moved, with the milliseconds slept.
    std::function<void(int64_t)> on_sleep;

  private:
    static ManualClock& Self(void* self) { return *static_cast<ManualClock*>(self); }
    void Sleep(int64_t milliseconds) {
        {
            const std::lock_guard lock(mutex_);
            sleeps_.push_back(milliseconds);
        }
        passed_ms_ += milliseconds;
        if (on_sleep) on_sleep(milliseconds);
    }

    const int64_t start_ms_;
    std::atomic<int64_t> passed_ms_ = 0;
    std::atomic<int64_t> jumped_ms_ = 0;
    mutable std::mutex mutex_;
    std::vector<int64_t> sleeps_;  // guarded by mutex_
    Clock clock_;
};

}  // namespace brickfall
