#include "base/clock.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace brickfall {
namespace {

using std::chrono::duration_cast;

int64_t SystemUnixMillis(void*) {
    return duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

int64_t SystemMonotonicNs(void*) {
    return duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

uint64_t SystemTickMs(void*) { return static_cast<uint64_t>(SystemMonotonicNs(nullptr) / 1'000'000); }

void SystemSleepMs(void*, int64_t milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

constexpr Clock kSystemClock = {SystemUnixMillis, SystemMonotonicNs, SystemTickMs, SystemSleepMs, nullptr};

std::atomic<const Clock*> installed_clock = &kSystemClock;

const Clock& Current() { return *installed_clock.load(std::memory_order_acquire); }

}  // namespace

const Clock& SystemClock() { return kSystemClock; }

void InstallClock(const Clock* clock) {
    installed_clock.store(clock != nullptr ? clock : &kSystemClock, std::memory_order_release);
}

int64_t UnixMillis() { return Current().unix_millis(Current().self); }

int64_t UnixSeconds() {
    // Floor, so that an instant before 1970 belongs to the second that it lies in.
    const int64_t millis = UnixMillis();
    return millis >= 0 ? millis / 1000 : -((-millis + 999) / 1000);
}

int64_t MonotonicNs() { return Current().monotonic_ns(Current().self); }

uint64_t TickMs() { return Current().tick_ms(Current().self); }

void SleepMs(int64_t milliseconds) {
    if (milliseconds > 0) Current().sleep_ms(Current().self, milliseconds);
}

}  // namespace brickfall
