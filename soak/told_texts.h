// told_texts.h - every text that a player may be told while services fail: the status line's, the log's, the
// report window's and the board's. Texts that stand for a fault of the program itself are not among them.
#pragma once

#include <string_view>

namespace brickfall::soak {

bool IsToldText(std::string_view text);

}  // namespace brickfall::soak
