// typefaces.h - the families that the cabinet's look asks for, and what stands in for each where it is not
// installed.
#pragma once

#include <string_view>

namespace brickfall {

enum class TypefaceKind { kSans, kSerif, kMono };

struct Typeface {
    const char* asked;
    const char* stand_in;  // free, and close in its look and its widths
    TypefaceKind kind;
};
inline constexpr Typeface kTypefaces[] = {
    {"Segoe UI", "Open Sans", TypefaceKind::kSans},
    {"Georgia", "Caladea", TypefaceKind::kSerif},
    {"Consolas", "Inconsolata", TypefaceKind::kMono},
};

constexpr const char* GenericName(TypefaceKind kind) {
    switch (kind) {
        case TypefaceKind::kSans:
            return "sans-serif";
        case TypefaceKind::kSerif:
            return "serif";
        case TypefaceKind::kMono:
            return "monospace";
    }
    return "";
}

}  // namespace brickfall
