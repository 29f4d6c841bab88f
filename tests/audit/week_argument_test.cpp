#include "audit/week_argument.h"

#include <gtest/gtest.h>

#include "board/watch_reader.h"

namespace brickfall {
namespace {

TEST(WeekArgument, ReadsWhatTheBoardWritesAndNothingElse) {
    EXPECT_EQ(ParseWeek("2026-W53"), 1'798'416'000) << "Monday 2026-12-28, in a year of 53 weeks";
    EXPECT_EQ(ParseWeek("2025-W01"), 1'735'516'800) << "Monday 2024-12-30";
    for (int64_t start = 345'600; start < 253'370'764'800; start += 7 * 86'400) {  // to the year 9999
        ASSERT_EQ(ParseWeek(WeekLabel(start)), start);
    }
    for (const char* const text : {"2025-W53", "1970-W01", "0000-W01", "2026-W00", "2026-W99", "2026-w39",
                                   "2026W39", " 2026-W39", "2026-W039", "2026-W+9", ""}) {
        EXPECT_FALSE(ParseWeek(text)) << text;
    }
}

}  // namespace
}  // namespace brickfall
