#include "audit/week_argument.h"

#include <chrono>
#include <cstddef>

#include "board/watch_reader.h"
#include "game/week.h"

namespace brickfall {

std::optional<int64_t> ParseWeek(std::string_view text) {
    constexpr std::string_view kForm = "0000-W00";
    if (text.size() != kForm.size()) return std::nullopt;
    int64_t digits = 0;  // of the year and the week in a row
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (kForm[i] != '0') {
            if (text[i] != kForm[i]) return std::nullopt;
            continue;
        }
        if (text[i] < '0' || text[i] > '9') return std::nullopt;
        digits = digits * 10 + (text[i] - '0');
    }
    using namespace std::chrono;
    const year iso_year{static_cast<int>(digits / 100)};
    const sys_seconds in_first_week =
        sys_days{iso_year / January / 4};  // the fourth is in week 1 of its year
    const int64_t in_week = in_first_week.time_since_epoch().count() + (digits % 100 - 1) * 7 * 86'400;
    const int64_t start = WeekStart(in_week);
    if (start < 1 || WeekLabel(start) != text) return std::nullopt;
    return start;
}

}  // namespace brickfall
