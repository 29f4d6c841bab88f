// week.h - the week that a score counts for. Pure.
#pragma once

#include <cstdint>

namespace brickfall {

// Monday 00:00:00 UTC at or before `unix_seconds`, in Unix seconds. A negative time counts as 0.
constexpr int64_t WeekStart(int64_t unix_seconds) {
    const int64_t days = (unix_seconds < 0 ? 0 : unix_seconds) / 86'400;
    return ((days + 3) / 7 * 7 - 3) * 86'400;  // day 0 of Unix time was a Thursday
}

}  // namespace brickfall
