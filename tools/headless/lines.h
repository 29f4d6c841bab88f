// lines.h - what the headless driver prints: indented lines, fields and the board. Standard output; main
// thread.
#pragma once

#include <string>
#include <string_view>

#include "board/board_load.h"

namespace brickfall {

void Say(std::string_view line);
void SayField(std::string_view name, std::string_view value);

// The rows whose face key is `my_key` are marked as the player's; none when it is empty.
void SayBoard(const BoardResult& board, const std::string& my_key);

}  // namespace brickfall
