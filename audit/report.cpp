#include "audit/report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <utility>

#include "audit/display_text.h"
#include "base/text.h"
#include "board/faces.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr std::size_t kMostEvidenceColumns = 300;
constexpr std::size_t kRunNameColumns = 60;

struct Column {
    const char* title;
    std::size_t columns;
    bool to_the_right;
};

constexpr Column kColumns[] = {{"score", 10, true}, {"player", 24, false},  {"level", 5, true},
                               {"played", 8, true}, {"events", 7, true},    {"keys/s", 6, true},
                               {"gap ms", 6, true}, {"same tick", 9, true}, {"recorded", 20, false}};

enum class Colour { kPlain, kGreen, kRed, kYellow };

std::string Coloured(std::string_view text, Colour colour, bool coloured) {
    constexpr const char* kCodes[] = {"", "\x1b[32m", "\x1b[31m", "\x1b[33m"};
    if (!coloured || colour == Colour::kPlain) return std::string(text);
    return kCodes[static_cast<std::size_t>(colour)] + std::string(text) + "\x1b[0m";
}

Colour ColourOf(AuditStatus status) {
    if (status == AuditStatus::kSound) return Colour::kGreen;
    return status == AuditStatus::kUnsound ? Colour::kRed : Colour::kYellow;
}

const char* StatusText(AuditStatus status) {
    return status == AuditStatus::kCouldNotLook ? "could not look" : StatusName(status);
}

std::string OneDecimal(double number) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", number);
    return text;
}

std::string Played(int64_t milliseconds) {
    const int64_t seconds = milliseconds / 1'000;
    char text[32];
    std::snprintf(text, sizeof text, "%lld:%02lld", static_cast<long long>(seconds / 60),
                  static_cast<long long>(seconds % 60));
    return text;
}

std::string TableLine(const std::vector<std::string>& cells) {
    std::string line;
    for (std::size_t i = 0; i < std::size(kColumns); ++i) {
        const Column& column = kColumns[i];
        std::string cell = SafeText(cells[i], column.columns);
        line += i == 0 ? "" : "  ";
        line += column.to_the_right ? PadLeft(std::move(cell), column.columns)
                                    : PadRight(std::move(cell), column.columns);
    }
    return line + "  ";
}

std::vector<std::string> CellsOf(const RowAudit& row) {
    std::vector<std::string> cells(std::size(kColumns), "-");
    if (!row.has_row) return cells;
    cells[0] = Grouped(row.score);
    cells[1] = row.handle;
    cells[8] = UtcText(row.ts);
    if (!row.run) return cells;
    cells[2] = std::to_string(row.run->level);
    cells[3] = Played(row.run->length_ms);
    cells[4] = Grouped(static_cast<int64_t>(row.run->events));
    cells[5] = OneDecimal(row.run->PressesPerSecond());
    if (row.run->presses > 1) cells[6] = Grouped(row.run->shortest_gap_ms);
    cells[7] = std::to_string(std::lround(row.run->SameTickShare() * 100)) + " %";
    return cells;
}

std::string Indented(std::string_view text) {
    return "            " + SafeText(text, kMostEvidenceColumns) + "\n";
}

json RunJson(const RunFacts& run) {
    return {{"length_ms", run.length_ms},
            {"score", run.score},
            {"level", run.level},
            {"events", run.events},
            {"presses", run.presses},
            {"presses_per_second", run.PressesPerSecond()},
            {"shortest_gap_ms", run.presses > 1 ? json(run.shortest_gap_ms) : json(nullptr)},
            {"same_tick_share", run.SameTickShare()}};
}

json RowJson(const RowAudit& row) {
    json form = {{"txid", row.txid},
                 {"status", StatusName(row.Status())},
                 {"verdicts", json::array()},
                 {"could_not_look", json::array()},
                 {"not_told", json::array()},
                 {"height", row.block.told ? json(row.block.height) : json(nullptr)},
                 {"time", row.block.time > 0 ? json(row.block.time) : json(nullptr)},
                 {"row", nullptr},
                 {"run", row.run ? RunJson(*row.run) : json(nullptr)}};
    for (const Finding& found : row.findings) {
        form["verdicts"].push_back({{"name", VerdictName(found.verdict)},
                                    {"text", VerdictText(found.verdict)},
                                    {"evidence", found.evidence}});
    }
    for (const NotLooked& not_looked : row.not_looked)
        form["could_not_look"].push_back({{"what", not_looked.what}, {"why", not_looked.why}});
    for (const char* const what : row.not_judged) form["not_told"].push_back(what);
    if (row.has_row) {
        form["row"] = {{"handle", row.handle},
                       {"actor", row.actor},
                       {"score", row.score},
                       {"week", row.week},
                       {"ts", row.ts},
                       {"entry", row.entry},
                       {"pay_addr", row.pay_addr},
                       {"pubkey", row.public_key}};
    }
    return form;
}

int Standing(const RowAudit& audit) {
    switch (audit.Status()) {
        case AuditStatus::kSound:
            return 0;
        case AuditStatus::kCouldNotLook:
            return 1;
        case AuditStatus::kUnsound:
            return 2;
    }
    return 2;
}

}  // namespace

AuditReport MakeReport(const Collected& collected, std::size_t threads) {
    AuditReport report{collected.scope, collected.listed, collected.list_error, {}};
    report.rows = JudgeRows(collected.evidence, threads);
    report.rows.resize(collected.judged);
    std::ranges::stable_sort(report.rows, RanksAbove);
    return report;
}

AuditTotals CountRows(const AuditReport& report) {
    AuditTotals totals;
    for (const RowAudit& row : report.rows) {
        switch (row.Status()) {
            case AuditStatus::kSound:
                ++totals.sound;
                break;
            case AuditStatus::kUnsound:
                ++totals.unsound;
                break;
            case AuditStatus::kCouldNotLook:
                ++totals.could_not_look;
                break;
        }
    }
    return totals;
}

std::string RunName(const RowAudit& audit) {
    const std::string name = SafeText(audit.handle.substr(0, audit.handle.find('@')), kRunNameColumns);
    return name.empty() ? "nobody" : name;
}

std::string RunFaceKey(const RowAudit& audit) {
    ScoreRow row;
    row.handle = audit.handle;
    row.pay_addr = audit.pay_addr;
    return FaceKey(row);
}

std::string VerdictLine(const RowAudit& audit) {
    switch (audit.Status()) {
        case AuditStatus::kSound:
            return "sound";
        case AuditStatus::kUnsound:
            return std::string("unsound: ") + VerdictText(audit.findings.front().verdict);
        case AuditStatus::kCouldNotLook:
            return std::string("could not look: ") + audit.not_looked.front().what;
    }
    return "";
}

bool WatchedAbove(const RowAudit& a, const RowAudit& b) {
    if (Standing(a) != Standing(b)) return Standing(a) < Standing(b);
    return RanksAbove(a, b);
}

int ExitCode(const AuditReport& report) {
    const AuditTotals totals = CountRows(report);
    if (totals.unsound > 0) return 1;
    return totals.could_not_look > 0 || !report.listed ? 2 : 0;
}

std::string ReportText(const AuditReport& report, bool coloured) {
    std::string text = "Brickfall audit: " + SafeText(report.scope, kMostEvidenceColumns) + "\n\n";
    std::vector<std::string> titles;
    for (const Column& column : kColumns) titles.emplace_back(column.title);
    text += TableLine(titles) + "status\n";
    bool times_told = true;
    for (const RowAudit& row : report.rows) {
        const Colour colour = ColourOf(row.Status());
        text += TableLine(CellsOf(row)) + Coloured(StatusText(row.Status()), colour, coloured) + "\n";
        if (row.Status() != AuditStatus::kSound) text += Indented("record " + row.txid);
        for (const Finding& found : row.findings) {
            const std::string line =
                Indented(std::string(VerdictText(found.verdict)) + ": " + found.evidence);
            text += Coloured(line, Colour::kRed, coloured);
        }
        for (const NotLooked& not_looked : row.not_looked) {
            const std::string line =
                Indented(std::string("could not look: ") + not_looked.what + ": " + not_looked.why);
            text += Coloured(line, Colour::kYellow, coloured);
        }
        times_told = times_told && row.not_judged.empty();
    }
    const AuditTotals totals = CountRows(report);
    text += "\n" + Grouped(static_cast<int64_t>(report.rows.size())) +
            " rows: " + std::to_string(totals.sound) + " sound, " + std::to_string(totals.unsound) +
            " unsound, " + std::to_string(totals.could_not_look) + " could not be looked at.\n";
    if (!times_told) text += "Not told, and so not judged: the block time of a record or an entry.\n";
    if (!report.list_error.empty()) {
        text +=
            std::string(report.listed ? "Only the newest records are listed" : "No records could be listed") +
            ": indexer: " + SafeText(report.list_error, kMostEvidenceColumns) + "\n";
    }
    return text;
}

json ReportJson(const AuditReport& report) {
    const AuditTotals totals = CountRows(report);
    json rows = json::array();
    for (const RowAudit& row : report.rows) rows.push_back(RowJson(row));
    return {{"version", 1},
            {"scope", report.scope},
            {"listed", report.listed},
            {"list_error", report.list_error.empty() ? json(nullptr) : json(report.list_error)},
            {"totals",
             {{"rows", report.rows.size()},
              {"sound", totals.sound},
              {"unsound", totals.unsound},
              {"could_not_look", totals.could_not_look}}},
            {"rows", std::move(rows)}};
}

std::string JsonText(const json& document) {
    return document.dump(2, ' ', /*ensure_ascii=*/false, json::error_handler_t::replace) + "\n";
}

}  // namespace brickfall
