// foreign_json.h - the one reader of JSON that others have written: services, strangers' rows, files that
// other programs write too. Size, nesting and the number of values are counted on the text before anything is
// built from it, so that no text costs more than its bound. Pure functions; any thread.
#pragma once

#include <cstddef>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string_view>

namespace brickfall {

// How deep a document may nest. Real ones stay below ten; the JSON library copies and writes a document by
// recursion, so that a hostile one could exhaust the stack.
inline constexpr std::size_t kMaxJsonDepth = 64;

// The longest string or number. The parser holds a token it reads several times over. The longest real one,
// a transaction with a full tape in hexadecimal, is below a third of it.
inline constexpr std::size_t kMaxJsonTokenBytes = 16 << 20;

// A built value takes up to some 160 bytes, whatever its text takes: with the text itself, `values` bounds
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

// What a long document is read for: the elements of one list, and of each element the members named here, at
// whatever depth they stand. Everything else is passed over and never built: a stranger may have written it.
struct ListShape {
    bool root_is_list = false;
    std::string_view key = {};  // the root is an object with the list under this key; empty: it may not be
    std::span<const std::string_view> members = {};
};

// Of one element, what is built at most.
inline constexpr std::size_t kMaxElementValues = 1'000;
inline constexpr std::size_t kMaxElementDepth = 8;

// Hands each element of the list to `take`, in order, one in memory at a time. False when the text has no
// such list, does not parse or goes beyond a limit, or as soon as `take` gives false: what was handed over
// until then is not to be relied on. Throws nothing but std::bad_alloc and what `take` throws.
bool ForEachElement(std::string_view text, const ListShape& shape, const JsonLimits& limits,
                    const std::function<bool(const nlohmann::json& element)>& take);

}  // namespace brickfall
