// clock.h - every reading of time and every sleep of the program, through one settable structure.
// Any thread may call it. A test installs a manual clock; nothing else in the program touches a clock.
#pragma once

#include <cstdint>

namespace brickfall {

struct Clock {
    int64_t (*unix_millis)(void* self);   // milliseconds since 1970-01-01 00:00:00 UTC
    int64_t (*monotonic_ns)(void* self);  // nanoseconds, never falls; for ages in memory
    uint64_t (*tick_ms)(void* self);      // milliseconds, never falls; the wall clock of a run
    void (*sleep_ms)(void* self, int64_t milliseconds);
    void* self;
};

const Clock& SystemClock();

// Makes `clock` the one that the functions below read. It must outlive every later call; nullptr installs the
// system's clock, which is also the one at program start.
void InstallClock(const Clock* clock);

int64_t UnixMillis();
int64_t UnixSeconds();
int64_t MonotonicNs();
uint64_t TickMs();
void SleepMs(int64_t milliseconds);

}  // namespace brickfall
