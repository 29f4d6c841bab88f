#include "base/text.h"

#include <ctime>

namespace brickfall {
namespace {

constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

}  // namespace

std::string Lower(std::string_view text) {
    std::string lower(text);
    for (char& c : lower) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return lower;
}

std::string_view StripFront(std::string_view text, std::string_view characters) {
    const std::size_t first = text.find_first_not_of(characters);
    return first == std::string_view::npos ? std::string_view() : text.substr(first);
}

std::string_view StripBack(std::string_view text, std::string_view characters) {
    return text.substr(0, text.find_last_not_of(characters) + 1);
}

std::string_view Trim(std::string_view text) { return StripBack(StripFront(text, kWhiteSpace), kWhiteSpace); }

std::string Grouped(int64_t number) {
    std::string digits = std::to_string(number);
    for (std::size_t at = digits.size(); at > 3 + (number < 0 ? 1u : 0u);) {
        at -= 3;
        digits.insert(at, 1, ',');
    }
    return digits;
}

std::string Satoshis(int64_t amount) { return Grouped(amount) + " sat"; }

std::string UtcText(int64_t unix_seconds) {
    if (unix_seconds <= 0) return "-";
    const auto time = static_cast<std::time_t>(unix_seconds);
    std::tm utc{};
    if (::gmtime_r(&time, &utc) == nullptr) return "-";
    char text[64];
    return std::strftime(text, sizeof text, "%Y-%m-%d %H:%M UTC", &utc) > 0 ? text : "-";
}

int HexDigitValue(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return -1;
}

bool IsHexText(std::string_view text, std::size_t length) {
    if (text.size() != length) return false;
    for (const char c : text) {
        if (HexDigitValue(c) < 0) return false;
    }
    return true;
}

}  // namespace brickfall
