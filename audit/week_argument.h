// week_argument.h - the week that a command line names. Pure.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace brickfall {

// The week's Monday 00:00:00 UTC in Unix seconds, of exactly what WeekLabel writes: an ISO 8601 year of four
// digits and week, such as "2026-W48". Nothing for any other text, for a week 53 of a year that has 52, and
// for a week that began before Unix time did.
std::optional<int64_t> ParseWeek(std::string_view text);

}  // namespace brickfall
