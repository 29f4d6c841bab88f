// foreign_json.h - the one reader of JSON that others have written: services, strangers' rows, files that
// other programs write too. Size, nesting and the number of values are counted on the text before anything is
// built from it, so that no text costs more than its bound. Pure functions; any thread.
#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <string_view>

namespace brickfall {

// How deep a document may nest. Real ones stay below ten; the JSON library copies and writes a document by
// recursion, so that a hostile one could exhaust the stack.
inline constexpr std::size_t kMaxJsonDepth = 64;

// A built value takes up to some 100 bytes, whatever its text takes: with the text itself, `values` bounds
// the memory of a document.
struct JsonLimits {
    std::size_t bytes = 0;   // of the text
    std::size_t values = 0;  // members and elements of all objects and arrays, and these themselves
    std::size_t depth = kMaxJsonDepth;
};

// Whether the text stays within the limits, in one pass over it. It judges no grammar: that is the parser's.
bool IsWithinLimits(std::string_view text, const JsonLimits& limits);

// A text that does not parse, or goes beyond a limit, gives a document of no type: neither null nor object
// nor array. Throws nothing but std::bad_alloc.
nlohmann::json ParseForeignJson(std::string_view text, const JsonLimits& limits);

}  // namespace brickfall
