// text.h - byte-wise text helpers that know no locale. Pure functions; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace brickfall {

// A to Z become a to z; every other byte stays, UTF-8 sequences included.
std::string Lower(std::string_view text);

// Removes space, tab, LF, VT, FF and CR from both ends.
std::string_view Trim(std::string_view text);

// Removes every leading, or trailing, byte that stands in `characters`.
std::string_view StripFront(std::string_view text, std::string_view characters);
std::string_view StripBack(std::string_view text, std::string_view characters);

constexpr bool IsAsciiLetterOrDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

std::string Grouped(int64_t number);   // decimal, with a comma between thousands
std::string Satoshis(int64_t amount);  // grouped, with the unit

// "2026-11-24 17:21 UTC"; "-" for 0, for a time before 1970 and for one that no calendar has.
std::string UtcText(int64_t unix_seconds);

// The value of a hexadecimal digit of either case, or -1.
int HexDigitValue(char digit);

// True when `text` has exactly `length` characters, all hexadecimal digits of either case.
bool IsHexText(std::string_view text, std::size_t length);

// True when `text` has the form of a transaction id: 64 hexadecimal digits.
inline bool IsTxidText(std::string_view text) { return IsHexText(text, 64); }

// Appends two lower-case digits a byte, high digit first, to a string of any allocator.
template <typename String>
void AppendHex(String& out, std::span<const uint8_t> bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    out.reserve(out.size() + 2 * bytes.size());
    for (const uint8_t byte : bytes) {
        out.push_back(kDigits[byte >> 4]);
        out.push_back(kDigits[byte & 15]);
    }
}

}  // namespace brickfall
