// cabinet.h - everything of a cabinet below its windows, as a process of its own: the wallet's state is the
// process's, so two cabinets on one store, and a restart, are what they are for a player. It reads one
// command a line from its standard input and answers each with one line, both JSON.
//
//   command   {"do": name, "now": Unix ms, "passed": ms, "divisor": of time-outs, ...}
//   answer    {"told": [every text for the player], "slept": ms, "mode", "entry", "record", "score", ...}
#pragma once

#include <string>

namespace brickfall::soak {

struct CabinetPlace {
    std::string folder;      // of the installation; working folder, and what names its bind
    std::string connect_to;  // of the sandbox
    std::string authority;
};

// The process's exit code, once its input ends.
int RunCabinet(const CabinetPlace& place);

}  // namespace brickfall::soak
