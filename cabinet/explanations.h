// explanations.h - what a status line means in plain words, and what to do about it: one table.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "game/flows.h"

namespace brickfall {

enum class ExplainedWhen {
    kAlways,
    kConnected,    // a wallet is connected
    kChainMissed,  // the last look at the chain gave nothing
};

// What goes on while a status stands.
enum class ExplainedWork { kNone, kWallet, kBoard };

struct Explanation {
    std::string_view status;  // '*' stands for any text
    std::string_view text;
    ExplainedWhen when = ExplainedWhen::kAlways;
    bool fails = false;  // a payment, or a step before it: what becomes of run or score is said first
    ExplainedWork work = ExplainedWork::kNone;
    std::string_view service = {};  // that the work waits for
};

// What is true beside the status.
struct StatusContext {
    std::optional<PayKind> asked;  // what the button that was pressed last pays for, if it pays
    bool connected = false;
    bool chain_missed = false;
};

// The first row that fits is meant.
std::span<const Explanation> Explanations();

// Nothing for a status that says it all.
const Explanation* FindExplanation(std::string_view status, const StatusContext& context);

std::string ExplanationText(const Explanation& found, const StatusContext& context);

}  // namespace brickfall
