// golden_text: reads golden runs from standard input and writes each anew from its tape, so that the same
// text comes out. It needs no files and no threads, for machines that have neither.
#include <iostream>

#include "tests/game/golden_run.h"

int main() {
    using namespace brickfall;
    for (std::string line; std::getline(std::cin, line);) {
        std::vector<uint8_t> bytes;
        InputTape tape;
        if (!line.starts_with("tape ")) continue;
        if (!HexToBytes(line.substr(5), bytes) || ReadTape(bytes, tape) != TapeFault::kNone) return 1;
        std::cout << GoldenText(tape);
    }
    return std::cout.flush().good() ? 0 : 1;
}
