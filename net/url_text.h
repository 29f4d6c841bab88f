// url_text.h - text of others in a URL. Pure functions; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brickfall {

// The name as one segment of a path (RFC 3986, 3.3), bytes above 0x7F percent-encoded. Nothing for a name
// that could be more or less than one, or be read as another by some server: an empty one, one that begins
// with a dot, one with any of / \ ? # % @, a blank or a control character. It is never asked for.
std::optional<std::string> PathSegment(std::string_view name);

// `before`, the name as one segment, `behind`. Nothing when the name is none.
std::optional<std::string> UrlWithName(std::string_view before, std::string_view name,
                                       std::string_view behind = "");

// The text as a value behind "?name=": every byte but the unreserved ones (RFC 3986, 2.3) percent-encoded.
std::string QueryValue(std::string_view text);

}  // namespace brickfall
