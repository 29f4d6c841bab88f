#include "cabinet/explanations.h"

#include <algorithm>

#include "base/text.h"

namespace brickfall {
namespace {

constexpr ExplainedWhen kAlways = ExplainedWhen::kAlways;
constexpr std::string_view kOwnFault = "A fault of the program or of its installation; nothing was spent.";
constexpr std::string_view kUnknown =
    "It is not known whether the payment went out; look at the balance before you pay again.";
constexpr std::string_view kNotReached =
    "The network could not be reached; most likely nothing was spent. Try again when you are online.";
constexpr std::string_view kNoWallet = "Nothing was spent. Press Connect, and approve a wallet in Pouch.";
constexpr std::string_view kNotSealed = "Nothing was spent, and your text stands in the window. Try again.";
constexpr std::string_view kNoKey =
    "The wallet could not sign; nothing was spent. Unbind, Connect, and try again.";
constexpr std::string_view kPayServices = "WhatsOnChain and the relay";

constexpr Explanation Failure(std::string_view status, std::string_view text, ExplainedWhen when = kAlways) {
    return {status, text, when, /*fails=*/true};
}

constexpr Explanation Waiting(std::string_view status, std::string_view text, std::string_view service,
                              ExplainedWork work = ExplainedWork::kWallet) {
    return {status, text, kAlways, /*fails=*/false, work, service};
}

constexpr Explanation kExplanations[] = {
    // ---- The first steps, and a run.
    {"Connect Pouch, then Play.", "Press Play to start a run: 5,000 sats, and a fee of some 150.",
     ExplainedWhen::kConnected},
    {"Connect Pouch, then Play.", "First press Connect, and approve this cabinet in Pouch; then press Play."},
    {"Connect a Pouch wallet first.", "Press Connect, and approve this cabinet in Pouch."},
    {"Connected. Play when you are funded.", "Press Play to start a run: 5,000 sats, and a fee of some 150."},
    {"Unbound. Connect again to pick a wallet in Pouch.",
     "The wallet stays in Pouch, with all that it holds."},
    {"Publish a @* name before you play.",
     "Scores stand under a name. Claim one for this wallet in Pouch, then press Play again."},
    {"This identity is frozen. No play.",
     "The operator has frozen this name; nothing was spent. Ask why by Report, or connect another wallet."},
    {"Entered. Blocks incoming.", "Left and Right move the paddle, Space serves, P pauses."},
    {"Paused.", "Press P to go on."},
    {"Finish this run first.", "A run ends with its last life; P pauses it, and P goes on."},
    {"Finish or close the run before unbinding.",
     "A run ends with its last life; P pauses it, and P goes on."},
    {"Game over. Record this score on-chain (1 sat).",
     "Return records the score, for the fee beside the field. Play starts anew and drops it."},
    {"Play a full run first.",
     "There is no score to record. Press Play, and play until the last life is lost."},
    {"Missing enter txid.",
     "The payment for this run came back without its id: the score cannot go on the chain, but stays in your "
     "list."},
    {"Score recorded.*", "The score stands on the chain, and on the board once its services list it."},
    {"Report sent.*", "Nobody but the architect can read it."},
    {"Transaction id copied.", "Any block explorer finds the transaction by it."},

    // ---- What takes its time.
    Waiting("Waiting for Pouch to approve...", "Approve this cabinet in Pouch's window within a minute.",
            "Pouch"),
    Waiting("Waiting for Pouch to approve this app...",
            "Approve this cabinet in Pouch's window within a minute.", "Pouch"),
    Waiting("Paying enter fee in Pouch...", "", kPayServices),
    Waiting("Recording score on-chain (1 sat)...", "", kPayServices),
    Waiting("Sending report in Pouch...", "", kPayServices),
    Waiting("Loading this week's board...", "", "the board's indexer and WhatsOnChain",
            ExplainedWork::kBoard),
    {"Checking your name...",
     "The paymail service is asked about your name; until it answers, 15 seconds at most, the window stands "
     "still."},

    // ---- Connecting.
    {"Connect failed.", "The memory ran out. Close other programs, then press Connect again."},
    {"error: connect denied in Pouch.",
     "Nothing has changed. Press Connect again when you want to approve it."},
    {"error: Pouch did not approve in time. *",
     "The cabinet waits for a minute. Open Pouch, press Connect, approve."},
    {"error: could not write connect request.",
     "The store's folder cannot be written to. Look at its rights and the free space, then press Connect "
     "again."},
    {"error: approved, but the wallet would not load.*",
     "The wallet's file is missing, damaged or of an older kind. Open the wallet in Pouch, or approve "
     "another."},
    {"error: connect is for apps, not the Pouch vault.",
     "The cabinet is not set up. Close it and start it again."},
    {"The wallet has more than 100,000 receive addresses.*",
     "Make a new wallet in Pouch, send the coins to it, and connect that one."},

    // ---- Before a payment.
    {"Connect the same Pouch that paid to enter.",
     "Your score is kept. Press Connect, approve the wallet that paid, then press Record score."},
    Failure("Could not sign the score.", kNoKey),
    Failure("Connect Pouch", "The wallet has no published name just now. Open Pouch, then try again."),
    Failure("Pouch HD wallet not connected", "Only a wallet of twelve words can sign; nothing was spent."),
    Failure("could not derive Pouch * key", kNoKey),
    Failure("Pouch identity sign failed", kNoKey),
    Failure("identity signature did not verify against * PKI",
            "The paymail service did not answer, or has another key for your name; nothing was spent. Try "
            "again later."),
    {"Connect Pouch and publish a @* name first.",
     "Reports are signed with a name. Claim one for this wallet in Pouch."},
    {"Write a report (max 2000 characters).",
     "Letters with accents count two, other scripts three, emoji four."},
    {"no encryption key on file for @*",
     "Nothing was spent. The architect's key file is missing in the program's folder userinfo; install it "
     "anew."},
    {"could not load Pouch encryption keys", kNotSealed},
    {"Could not encrypt the report.", kNotSealed},
    {"Could not sign the report.", kNotSealed},
    {"RNG failed", kNotSealed},
    {"failed to wrap direct-message key", kNotSealed},
    {"failed to encrypt direct message", kNotSealed},

    // ---- A payment that was not made.
    Failure("error: you have 0 in your Pouch wallet.",
            "Nothing could be read; nothing was spent. Try again when you are online.",
            ExplainedWhen::kChainMissed),
    Failure("error: you have 0 in your Pouch wallet.",
            "Nothing was spent. Send coins to the wallet; if it holds some, they could not be read: try "
            "again later."),
    Failure("error: insufficient funds. *",
            "Nothing was spent. Send the rest to the wallet, and try again once the balance shows it."),
    Failure(
        "error: cannot read *; nothing was spent.",
        "The file is there and cannot be read, so nobody knows which coins are free. Look at its rights."),
    Failure("error: Pouch wallet not connected. *", kNoWallet),
    Failure("error: no Orvane Pouch wallet. *", kNoWallet),
    Failure("error: no wallet", kNoWallet),
    Failure("error: wallet changed.",
            "Another program changed the wallet. Look at the balance, then try again."),
    Failure("error: need an HD Pouch wallet.",
            "Only a wallet of twelve words can pay; nothing was spent. Make one in Pouch, and connect it."),
    Failure("error: pouch address decode failed.",
            "The wallet's own address is damaged; nothing was spent. Open the wallet in Pouch."),
    Failure("error: * decode failed.", kOwnFault),
    Failure("error: empty * payload.", kOwnFault),
    Failure("error: nothing to pay.", kOwnFault),
    Failure("error: invalid inscription output.", kOwnFault),
    Failure("error: failed to build transaction.", kOwnFault),
    Failure("error: serialize failed.", kOwnFault),
    Failure("error: signing failed.", kNoKey),

    // ---- A payment that may have gone out.
    Failure("Pay failed.", kUnknown),
    Failure("error: payment failed.", kUnknown),
    Failure("error: broadcast did not confirm. *", kUnknown),
    Failure("error: broadcast failed after retry.",
            "Three tries were refused, since their coins are spent already. Look at the balance before you "
            "pay again."),
    Failure("error: broadcast failed: *txn-already*",
            "The network knows this payment, so most likely it went out. Look at the balance before you pay "
            "again."),
    Failure("error: broadcast failed: *already have*",
            "The network knows this payment, so most likely it went out. Look at the balance before you pay "
            "again."),
    Failure(
        "error: broadcast failed: HTTP 429 *",
        "WhatsOnChain was asked too often; most likely nothing was spent. Wait a minute, then try again."),
    Failure("error: broadcast failed: HTTP 4*",
            "The network refused the payment, and most likely nothing was spent. Trying again costs nothing "
            "until it goes through."),
    Failure("error: broadcast failed: *resolve*", kNotReached),
    Failure("error: broadcast failed: *connect to server*", kNotReached),
    Failure("error: broadcast failed: SSL *", kNotReached),
    Failure("error: broadcast failed: *", kUnknown),

    // ---- Look-ups.
    {"No scores posted yet.",
     "Nobody has recorded one, or the board's services did not answer. Load the board again later."},
    {"No scores for this week yet.", "The week begins on Monday, 00:00 UTC."},
    {"Pouch balance:  (WhatsOnChain miss)",
     "WhatsOnChain could not be read: the balance is not known. Nothing is lost by that."},
    {"Current weekly pot:  (lookup miss)",
     "WhatsOnChain could not be read: the pot is not known. It is read again after each payment."},
};

bool Fits(std::string_view text, std::string_view pattern) {
    const std::size_t star = pattern.find('*');
    if (star == std::string_view::npos) return text == pattern;
    if (!text.starts_with(pattern.substr(0, star))) return false;
    text.remove_prefix(star);
    pattern.remove_prefix(star + 1);
    if (pattern.empty()) return true;
    for (; !text.empty(); text.remove_prefix(1)) {
        if (Fits(text, pattern)) return true;
    }
    return false;
}

bool Holds(ExplainedWhen when, const StatusContext& context) {
    switch (when) {
        case ExplainedWhen::kAlways:
            return true;
        case ExplainedWhen::kConnected:
            return context.connected;
        case ExplainedWhen::kChainMissed:
            return context.chain_missed;
    }
    return false;
}

std::string_view WhatBecomes(PayKind asked) {
    switch (asked) {
        case kPayEnter:
            return "No run has begun. ";
        case kPayRecord:
            return "Your score is kept. ";
        case kPayReport:
            return "";
    }
    return "";
}

}  // namespace

std::span<const Explanation> Explanations() { return kExplanations; }

const Explanation* FindExplanation(std::string_view status, const StatusContext& context) {
    status = Trim(status);  // what the wallet tells comes with its line's end
    const auto* const row = std::ranges::find_if(kExplanations, [&](const Explanation& each) {
        return Holds(each.when, context) && Fits(status, each.status);
    });
    return row != std::end(kExplanations) ? row : nullptr;
}

std::string ExplanationText(const Explanation& found, const StatusContext& context) {
    std::string text;
    if (found.fails && context.asked) text = WhatBecomes(*context.asked);
    return text += found.text;
}

}  // namespace brickfall
