#include "tools/headless/lines.h"

#include <cstddef>
#include <cstdio>

#include "base/text.h"

namespace brickfall {
namespace {

// As the board shows it: the name as text, whatever its bytes, in a column of its own.
std::string NameColumn(const ScoreRow& row) {
    constexpr std::size_t kWidth = 24;
    std::string name;
    for (const char c : FaceKey(row)) name += static_cast<unsigned char>(c) < 0x20 || c == 0x7f ? '?' : c;
    if (name.size() > kWidth) name.replace(kWidth - 3, name.npos, "...");
    name.resize(kWidth, ' ');
    return name;
}

void SayRow(const std::string& place, const ScoreRow& row, const std::string& my_key) {
    const bool mine = !my_key.empty() && FaceKey(row) == my_key;
    std::printf("     %4s  %s  %12s  %-20s  %-7s%s\n", place.c_str(), NameColumn(row).c_str(),
                Grouped(row.score).c_str(), UtcText(row.ts).c_str(), row.verified ? "chain" : "local",
                mine ? " <- you" : "");
}

}  // namespace

void Say(std::string_view line) { std::printf("     %.*s\n", static_cast<int>(line.size()), line.data()); }

void SayField(std::string_view name, std::string_view value) {
    std::printf("     %-16.*s %.*s\n", static_cast<int>(name.size()), name.data(),
                static_cast<int>(value.size()), value.data());
}

void SayBoard(const BoardResult& board, const std::string& my_key) {
    SayField("week", board.week_label);
    if (board.has_best) {
        Say("Highest score ever:");
        SayRow("", board.best, my_key);
    }
    if (board.rows.empty()) {
        Say(board.message.empty() ? "No scores posted yet." : board.message);
        return;
    }
    Say("Top scores for this week:");
    for (std::size_t i = 0; i < board.rows.size(); ++i) SayRow(std::to_string(i + 1), board.rows[i], my_key);
    SayField("faces", std::to_string(board.faces.size()) + " pictures");
}

}  // namespace brickfall
