// display_text.h - text of strangers on a terminal, in columns. Pure functions; any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace brickfall {

// How many columns of a terminal the text takes: none for marks that join the letter before them, two for the
// wide letters of East Asia and for pictures.
std::size_t DisplayColumns(std::string_view utf8);

// The text on one line and in its own direction: each byte that is no UTF-8, and each character that moves
// the cursor, hides, or turns the direction of writing, is shown as U+FFFD. Beyond `most_columns` it is cut,
// with an ellipsis as its last column.
std::string SafeText(std::string_view utf8, std::size_t most_columns);

// Filled up with blanks to as many columns.
std::string PadRight(std::string text, std::size_t columns);
std::string PadLeft(std::string text, std::size_t columns);

}  // namespace brickfall
