// explanation_line.h - the words of the line above the status line: what the status means and what to do, or
// how long the window has been waiting for whom. Main thread only.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace brickfall {

inline constexpr int kSecondsTimer = 42;  // runs while something is waited for

// Starts and ends the count of a wait as well. Where the status says it all and nothing is waited for, the
// first of the other lines that needs an explanation gets it.
std::string ExplanationLine(std::string_view status, std::span<const std::string> other_lines);

// Of a text that stands elsewhere, as in a box.
std::string ExplanationOf(std::string_view text);

}  // namespace brickfall
