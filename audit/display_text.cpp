#include "audit/display_text.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace brickfall {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD
constexpr std::string_view kEllipsis = "\xE2\x80\xA6";

struct Range {
    char32_t first;
    char32_t last;
};

// Controls, line ends, what is never drawn, and what turns the direction of writing.
constexpr Range kHarmful[] = {{0x00, 0x1F},       {0x7F, 0x9F},       {0xAD, 0xAD},     {0x61C, 0x61C},
                              {0x180E, 0x180E},   {0x200B, 0x200F},   {0x2028, 0x202E}, {0x2060, 0x206F},
                              {0xFEFF, 0xFEFF},   {0xFFF9, 0xFFFB},   {0xD800, 0xDFFF}, {0xE000, 0xF8FF},
                              {0xE0000, 0xE0FFF}, {0xF0000, 0x10FFFF}};

constexpr Range kJoining[] = {{0x300, 0x36F},   {0x483, 0x489},   {0x591, 0x5BD},   {0x610, 0x61A},
                              {0x64B, 0x65F},   {0x6D6, 0x6DC},   {0x900, 0x902},   {0x93A, 0x93A},
                              {0x93C, 0x93C},   {0x941, 0x948},   {0xE31, 0xE31},   {0xE34, 0xE3A},
                              {0xE47, 0xE4E},   {0x1AB0, 0x1AFF}, {0x1DC0, 0x1DFF}, {0x20D0, 0x20F0},
                              {0x302A, 0x302D}, {0x3099, 0x309A}, {0xFE00, 0xFE0F}, {0xFE20, 0xFE2F}};

constexpr Range kWide[] = {{0x1100, 0x115F},   {0x231A, 0x231B},   {0x2329, 0x232A},   {0x23E9, 0x23EC},
                           {0x25FD, 0x25FE},   {0x2614, 0x2615},   {0x2648, 0x2653},   {0x26A1, 0x26A1},
                           {0x26BD, 0x26BE},   {0x2705, 0x2705},   {0x270A, 0x270B},   {0x2728, 0x2728},
                           {0x274C, 0x274C},   {0x2753, 0x2755},   {0x2795, 0x2797},   {0x2B1B, 0x2B1C},
                           {0x2B50, 0x2B50},   {0x2E80, 0x303E},   {0x3041, 0x33FF},   {0x3400, 0x4DBF},
                           {0x4E00, 0x9FFF},   {0xA000, 0xA4CF},   {0xA960, 0xA97F},   {0xAC00, 0xD7A3},
                           {0xF900, 0xFAFF},   {0xFE30, 0xFE6F},   {0xFF00, 0xFF60},   {0xFFE0, 0xFFE6},
                           {0x1F004, 0x1F004}, {0x1F18E, 0x1F19A}, {0x1F200, 0x1F320}, {0x1F32D, 0x1F64F},
                           {0x1F680, 0x1F6FF}, {0x1F7E0, 0x1F7EB}, {0x1F900, 0x1FAFF}, {0x20000, 0x3FFFD}};

template <std::size_t N>
bool IsIn(const Range (&ranges)[N], char32_t code) {
    return std::any_of(std::begin(ranges), std::end(ranges),
                       [code](const Range& range) { return code >= range.first && code <= range.last; });
}

// Takes the next character off the text; false for a byte that begins none, which is taken alone.
bool TakeCharacter(std::string_view& text, std::string_view& character, char32_t& code) {
    const auto byte = [&text](std::size_t at) { return static_cast<uint8_t>(text[at]); };
    const uint8_t lead = byte(0);
    const std::size_t length = lead < 0x80 ? 1 : lead < 0xC2 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    bool good = length > 0 && length <= text.size() && lead < 0xF5;
    code = length == 1 ? lead : lead & (0x7F >> length);
    for (std::size_t i = 1; good && i < length; ++i) {
        good = byte(i) >> 6 == 2;
        code = code << 6 | (byte(i) & 0x3F);
    }
    good = good && !(length == 3 && code < 0x800) && !(length == 4 && (code < 0x10000 || code > 0x10FFFF));
    character = text.substr(0, good ? length : 1);
    text.remove_prefix(character.size());
    return good;
}

std::size_t ColumnsOf(char32_t code) {
    if (IsIn(kJoining, code)) return 0;
    return IsIn(kWide, code) ? 2 : 1;
}

}  // namespace

std::size_t DisplayColumns(std::string_view utf8) {
    std::size_t columns = 0;
    std::string_view character;
    for (char32_t code = 0; !utf8.empty();)
        columns += TakeCharacter(utf8, character, code) ? ColumnsOf(code) : 1;
    return columns;
}

std::string SafeText(std::string_view utf8, std::size_t most_columns) {
    constexpr std::size_t kMostMarks = 4;  // on one letter
    std::string shown;
    std::size_t columns = 0, fitting = 0, marks = 0;
    std::string_view character;
    for (char32_t code = 0; !utf8.empty();) {
        if (!TakeCharacter(utf8, character, code) || IsIn(kHarmful, code)) {
            character = kReplacement;
            code = 0xFFFD;
        }
        const std::size_t width = ColumnsOf(code);
        marks = width == 0 ? marks + 1 : 0;
        if (marks > kMostMarks) continue;
        columns += width;
        if (columns > most_columns) return shown.substr(0, fitting).append(kEllipsis);
        shown += character;
        if (columns < most_columns) fitting = shown.size();
    }
    return shown;
}

std::string PadRight(std::string text, std::size_t columns) {
    const std::size_t taken = DisplayColumns(text);
    return taken < columns ? text.append(columns - taken, ' ') : text;
}

std::string PadLeft(std::string text, std::size_t columns) {
    const std::size_t taken = DisplayColumns(text);
    return taken < columns ? text.insert(0, columns - taken, ' ') : text;
}

}  // namespace brickfall
