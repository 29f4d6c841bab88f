#include "cabinet/explanation_line.h"

#include <optional>
#include <string>

#include "base/clock.h"
#include "cabinet/explanations.h"
#include "cabinet/shell_state.h"

namespace brickfall {
namespace {

// The pot is read from the chain anew each time; the balance may be known from before.
StatusContext Context() {
    const bool chain_missed = shell.balance_missed || (shell.pot_sats < 0 && !shell.pot_error.empty());
    return {shell.asked, shell.connected, chain_missed};
}

bool Works(ExplainedWork work) {
    return work == ExplainedWork::kWallet ? shell.run.busy
                                          : work == ExplainedWork::kBoard && shell.board_busy;
}

std::optional<ServiceWait>& SlotOf(ExplainedWork work) {
    return work == ExplainedWork::kBoard ? shell.board_wait : shell.wallet_wait;
}

void NoteWait(const Explanation* row) {
    for (const ExplainedWork work : {ExplainedWork::kWallet, ExplainedWork::kBoard}) {
        if (!Works(work)) SlotOf(work).reset();
    }
    if (row == nullptr || !Works(row->work)) return;
    std::optional<ServiceWait>& wait = SlotOf(row->work);
    if (!wait || wait->service != row->service) wait = ServiceWait{row->service, TickMs()};
}

std::string WaitText(const ServiceWait& wait) {
    return "Waiting for " + std::string(wait.service) + ": " +
           std::to_string((TickMs() - wait.since_ms) / 1'000) + " s";
}

void CountSeconds() {
    const bool waits = shell.wallet_wait || shell.board_wait;
    if (waits == shell.counts_seconds) return;
    shell.counts_seconds = waits;
    if (waits) {
        StartTimer(shell.main, kSecondsTimer, 1'000);
    } else {
        StopTimer(shell.main, kSecondsTimer);
    }
}

}  // namespace

std::string ExplanationLine(std::string_view status, std::span<const std::string> other_lines) {
    const Explanation* const row = FindExplanation(status, Context());
    NoteWait(row);
    CountSeconds();
    if (row != nullptr) {
        std::string text = ExplanationText(*row, Context());
        if (!Works(row->work)) return text;
        if (!text.empty()) text += ' ';
        return text + WaitText(*SlotOf(row->work));
    }
    for (const auto& wait : {shell.wallet_wait, shell.board_wait}) {
        if (wait) return WaitText(*wait);
    }
    for (const std::string& line : other_lines) {
        if (std::string text = ExplanationOf(line); !text.empty()) return text;
    }
    return {};
}

std::string ExplanationOf(std::string_view text) {
    const Explanation* const row = FindExplanation(text, Context());
    return row != nullptr ? ExplanationText(*row, Context()) : std::string();
}

}  // namespace brickfall
