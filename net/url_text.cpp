#include "net/url_text.h"

namespace brickfall {

std::optional<std::string> PathSegment(std::string_view name) {
    constexpr std::string_view kRefused = "/\\?#%@";
    constexpr char kHexDigits[] = "0123456789ABCDEF";
    if (name.empty() || name.front() == '.') return std::nullopt;
    std::string segment;
    segment.reserve(name.size());
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte <= 0x20 || byte == 0x7F || kRefused.find(c) != std::string_view::npos) return std::nullopt;
        if (byte < 0x80) {
            segment += c;
        } else {
            (segment += '%') += kHexDigits[byte >> 4];
            segment += kHexDigits[byte & 15];
        }
    }
    return segment;
}

std::optional<std::string> UrlWithName(std::string_view before, std::string_view name,
                                       std::string_view behind) {
    std::optional<std::string> url = PathSegment(name);
    if (url) url->insert(0, before).append(behind);
    return url;
}

}  // namespace brickfall
