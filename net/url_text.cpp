#include "net/url_text.h"

#include "base/text.h"

namespace brickfall {
namespace {

void AppendPercent(std::string& out, unsigned char byte) {
    constexpr char kHexDigits[] = "0123456789ABCDEF";
    (out += '%') += kHexDigits[byte >> 4];
    out += kHexDigits[byte & 15];
}

}  // namespace

std::optional<std::string> PathSegment(std::string_view name) {
    constexpr std::string_view kRefused = "/\\?#%@";
    if (name.empty() || name.front() == '.') return std::nullopt;
    std::string segment;
    segment.reserve(name.size());
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte <= 0x20 || byte == 0x7F || kRefused.find(c) != std::string_view::npos) return std::nullopt;
        if (byte < 0x80) {
            segment += c;
        } else {
            AppendPercent(segment, byte);
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

std::string QueryValue(std::string_view text) {
    constexpr std::string_view kUnreserved = "-._~";
    std::string value;
    for (const char c : text) {
        if (IsAsciiLetterOrDigit(c) || kUnreserved.find(c) != std::string_view::npos) {
            value += c;
        } else {
            AppendPercent(value, static_cast<unsigned char>(c));
        }
    }
    return value;
}

}  // namespace brickfall
