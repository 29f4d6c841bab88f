// options.h - the viewer's command line. Pure.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/geometry.h"

namespace brickfall {

inline constexpr int kSmallestSide = 320;
inline constexpr Size kLargestPicture = {3'840, 2'160};

struct ViewOptions {
    std::string run;     // a file or a transaction's id; empty: this week's board
    std::string second;  // the same, as outlines in the first one's field
    std::string keep;    // of the board
    std::string film;    // where a film goes; empty: none
    std::string frames;  // the folder of single pictures
    std::string poster;
    std::string page;  // a file of HTML; without a run it holds the whole board
    Size size = {1'280, 720};
    uint64_t from_ms = 0;
    uint64_t for_ms = 0;  // 0: to the end
    bool inputs = false;
    bool help = false;
    bool version = false;

    bool Exports() const { return !film.empty() || !frames.empty() || !poster.empty(); }
};

extern const char* const kViewHelp;

// On false `error` says what is wrong.
bool ParseViewOptions(std::span<char* const> arguments, ViewOptions& options, std::string& error);

}  // namespace brickfall
