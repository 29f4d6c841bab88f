#include "tests/support/manual_clock.h"

namespace brickfall {

ManualClock::ManualClock(int64_t unix_seconds) : start_ms_(unix_seconds * 1000) {
    clock_.self = this;
    clock_.unix_millis = [](void* self) { return Self(self).start_ms_ + Self(self).passed_ms_.load(); };
    clock_.monotonic_ns = [](void* self) { return (1'000'000 + Self(self).passed_ms_.load()) * 1'000'000; };
    clock_.tick_ms = [](void* self) {
        return static_cast<uint64_t>(1'000'000 + Self(self).passed_ms_.load());
    };
    clock_.sleep_ms = [](void* self, int64_t milliseconds) {
        ManualClock& clock = Self(self);
        {
            const std::lock_guard lock(clock.mutex_);
            clock.sleeps_.push_back(milliseconds);
        }
        clock.passed_ms_ += milliseconds;
        if (clock.on_sleep) clock.on_sleep(milliseconds);
    };
    InstallClock(&clock_);
}

ManualClock::~ManualClock() { InstallClock(nullptr); }

std::vector<int64_t> ManualClock::Sleeps() const {
    const std::lock_guard lock(mutex_);
    return sleeps_;
}

}  // namespace brickfall
