#include "audit/options.h"

#include <optional>
#include <string_view>

#include "audit/week_argument.h"
#include "base/text.h"
#include "game/week.h"

namespace brickfall {

const char* const kAuditHelp =
    R"(usage: brickfall-audit [--week YYYY-Www | --all | TXID] [--file FILE] [--save FILE] [--page FILE.html]
                       [--json]
       brickfall-audit --payout [--one-each] [--week YYYY-Www] [--file FILE] [--save FILE] [--page FILE.html]
                       [--json]
       brickfall-audit --check

Judges recorded scores: signature, published key, seal, replay of the tape, entry, times, copies.
Without a choice: the rows of this week; with --file alone: what the file was saved for.
With --payout: who is due what of the week's pot. Nothing is paid.
With --check: whether each service of this build answers. Nothing is changed.

  --week YYYY-Www  the rows of a week, such as 2026-W48
  --all            every record
  TXID             the record of this transaction
  --file FILE      no network: from a file that --save has written, or a list of raw transactions
  --save FILE      writes the evidence that was used
  --page FILE      a page that replays the rows in any browser and loads nothing, with what was found, and of a
                   week its settlement
  --payout         the settlement of the week
  --one-each       one place a player, by identity key; else the best three rows, whosever they are
  --json           a report for programs
  --check          one harmless question to each service, and what it says
  --help           this text
  --version        the build

Ends with 0 when all is sound, 1 when something is not, 2 when something could not be looked at.
A settlement ends with 0 when it is final, 2 when it is provisional.
A check ends with 0 when every service answers as it should, else with 2.
)";

bool ParseAuditOptions(std::span<char* const> arguments, int64_t now, AuditOptions& options,
                       std::string& error) {
    options = {};
    error.clear();
    int choices = 0;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string_view argument = arguments[i];
        const auto value = [&]() -> std::optional<std::string> {
            if (i + 1 < arguments.size() && arguments[i + 1][0] != '\0') return arguments[++i];
            error = std::string(argument) + " needs a value";
            return std::nullopt;
        };
        if (argument == "--week") {
            const std::optional<std::string> label = value();
            if (!label) return false;
            const std::optional<int64_t> week = ParseWeek(*label);
            if (!week) {
                error = "no such week: \"" + *label + "\"";
                return false;
            }
            options.scope = {
                .kind = ScopeKind::kWeek, .week = *week, .txid = {}, .every_page = true, .with_pot = false};
            ++choices;
        } else if (argument == "--all") {
            options.scope = {
                .kind = ScopeKind::kAll, .week = 0, .txid = {}, .every_page = true, .with_pot = false};
            ++choices;
        } else if (argument == "--file" || argument == "--save" || argument == "--page") {
            const std::optional<std::string> path = value();
            if (!path) return false;
            (argument == "--file"   ? options.file
             : argument == "--save" ? options.save
                                    : options.page) = *path;
        } else if (argument == "--json") {
            options.json = true;
        } else if (argument == "--payout") {
            options.payout = true;
        } else if (argument == "--one-each") {
            options.one_each = true;
        } else if (argument == "--check") {
            options.check = true;
        } else if (argument == "--help") {
            options.help = true;
        } else if (argument == "--version") {
            options.version = true;
        } else if (IsTxidText(argument)) {
            options.scope = {.kind = ScopeKind::kOne,
                             .week = 0,
                             .txid = Lower(argument),
                             .every_page = false,
                             .with_pot = false};
            ++choices;
        } else {
            error = "unknown argument \"" + std::string(argument) + "\"";
            return false;
        }
    }
    if (options.check && arguments.size() > 1) {
        error = "--check stands alone";
        return false;
    }
    if (choices > 1) {
        error = "one of --week, --all and TXID";
        return false;
    }
    if (options.one_each && !options.payout) {
        error = "--one-each is of --payout";
        return false;
    }
    if (options.payout && choices > 0 && options.scope.kind != ScopeKind::kWeek) {
        error = "a settlement is of a --week";
        return false;
    }
    if (options.payout || (!options.page.empty() && options.scope.kind == ScopeKind::kWeek))
        options.scope.every_page = options.scope.with_pot = true;
    if (choices == 0 && options.file.empty()) {
        options.scope.week = WeekStart(now);
    } else if (choices == 0) {
        options.scope.kind = ScopeKind::kAsSaved;
    }
    return true;
}

}  // namespace brickfall
