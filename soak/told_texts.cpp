#include "soak/told_texts.h"

#include <algorithm>

#include "base/text.h"

namespace brickfall::soak {
namespace {

// '#' stands for a number, '@' for a transaction's id, '%' for a wallet's name or id, '<' for why a request
// failed.
constexpr std::string_view kTexts[] = {
    "Already working...",
    "Already connected. Unbind to pick another wallet.",
    "Waiting for Pouch to approve...",
    "Waiting for Pouch to approve this app...",
    "Connected to Pouch wallet %",
    "Connected. Play when you are funded.",
    "error: connect denied in Pouch.",
    "error: Pouch did not approve in time. Open Pouch.exe and try Connect again.",
    "This app is no longer connected to a Pouch wallet.",
    "Unbound. Connect again to pick a wallet in Pouch.",
    "Finish or close the run before unbinding.",

    "Finish this run first.",
    "Connect a Pouch wallet first.",
    "Checking your name...",
    "This identity is frozen. No play.",
    "Paying enter fee in Pouch...",
    "Entered. Blocks incoming.",
    "Left / Right move the paddle. Space serve. P pause.",
    "Paused.",
    "Back.",
    "Game over. Record this score on-chain (1 sat).",

    "Play a full run first.",
    "Connect the same Pouch that paid to enter.",
    "identity signature did not verify against orvane.test PKI",
    "Recording score on-chain (1 sat)...",
    "Score recorded. @",

    "Connect Pouch and publish a @orvane.test name first.",
    "Sending report in Pouch...",
    "Report sent. @",

    "error: you have 0 in your Pouch wallet.",
    "error: insufficient funds. Need # sats, you have # in your Pouch wallet.",
    "error: broadcast did not confirm. Wait a few seconds and try again.",
    "error: broadcast failed after retry.",
    "error: broadcast failed: <",

    "No scores for this week yet.",
    "No scores posted yet.",
};

constexpr std::string_view kReasons[] = {
    "HTTP #",
    "HTTP # – try later",
    "HTTP # – ]moo[",
    "HTTP # – unexpected response code 500: #: txn-already-known",
    "HTTP # – unexpected response code 500: #: txn-mempool-conflict",
    "HTTP # – unexpected response code 500: Missing inputs",
    "HTTP 429 – WhatsOnChain is rate-limiting. Wait a few seconds and try again.",
    "Server returned nothing (no headers, no data)",
    "Transferred a partial file",
    "Timeout was reached",
    "Failure when receiving data from the peer",
    "SSL connect error",
};

bool Fits(std::string_view text, std::string_view pattern);

// Takes at least one character that `belongs`, and no more than `limit`.
template <typename Belongs>
bool FitsRun(std::string_view text, std::string_view pattern, std::size_t limit, Belongs belongs) {
    std::size_t count = 0;
    while (count < std::min(limit, text.size()) && belongs(text[count])) ++count;
    return count > 0 && Fits(text.substr(count), pattern);
}

bool Fits(std::string_view text, std::string_view pattern) {
    for (; !pattern.empty(); pattern.remove_prefix(1), text.remove_prefix(1)) {
        const std::string_view rest = pattern.substr(1);
        if (pattern[0] == '#') {
            return FitsRun(text, rest, text.size(), [](char c) { return c >= '0' && c <= '9'; });
        }
        if (pattern[0] == '%') {
            return FitsRun(text, rest, text.size(),
                           [](char c) { return IsAsciiLetterOrDigit(c) || c == '-'; });
        }
        if (pattern == "@") return IsTxidText(text);
        if (pattern == "<") {
            return std::ranges::any_of(kReasons, [&](std::string_view reason) { return Fits(text, reason); });
        }
        if (text.empty() || text[0] != pattern[0]) return false;
    }
    return text.empty();
}

}  // namespace

bool IsToldText(std::string_view text) {
    return std::ranges::any_of(kTexts, [&](std::string_view pattern) { return Fits(text, pattern); });
}

}  // namespace brickfall::soak
