#include "audit/payout.h"

#include <algorithm>
#include <array>
#include <set>
#include <tuple>
#include <utility>

#include "base/text.h"
#include "game/week.h"
#include "wallet/json/json_numbers.h"
#include "wallet/protocol/address.h"

namespace brickfall {
namespace {

constexpr int64_t kWeekSeconds = int64_t{7} * 86'400;
constexpr std::size_t kPlaces = 3;

// Percent of the pot by place, for one sound row, two, and three or more.
constexpr std::array<std::array<int, kPlaces>, kPlaces> kPercents{{{100}, {60, 40}, {50, 30, 20}}};

// The board's order, and by id where the board has none.
bool RanksBefore(const JudgedRow& a, const JudgedRow& b) {
    if ((a.standing == RowStanding::kNotRead) != (b.standing == RowStanding::kNotRead)) {
        return b.standing == RowStanding::kNotRead;
    }
    if (StandsAbove(a, b) != StandsAbove(b, a)) return StandsAbove(a, b);
    return a.txid < b.txid;
}

// One row for each id; where two differ, the one that says less for itself: there a share would be paid on
// the word of one service against another's.
std::vector<JudgedRow> RankedRows(std::vector<JudgedRow> rows) {
    std::sort(rows.begin(), rows.end(), [](const JudgedRow& a, const JudgedRow& b) {
        return std::tie(a.txid, b.standing, a.score, a.ts, a.week, a.pubkey, a.pay_addr, a.handle, a.why) <
               std::tie(b.txid, a.standing, b.score, b.ts, b.week, b.pubkey, b.pay_addr, b.handle, b.why);
    });
    const auto same = [](const JudgedRow& a, const JudgedRow& b) { return a.txid == b.txid; };
    rows.erase(std::unique(rows.begin(), rows.end(), same), rows.end());
    std::sort(rows.begin(), rows.end(), RanksBefore);
    return rows;
}

// One payment for each id, a block's before one that waits; then by time and id, those without a time last.
std::vector<PotPayment> OrderedPayments(std::vector<PotPayment> payments) {
    std::sort(payments.begin(), payments.end(), [](const PotPayment& a, const PotPayment& b) {
        return std::tie(a.txid, a.burial, a.time, a.is_entry, a.satoshis) <
               std::tie(b.txid, b.burial, b.time, b.is_entry, b.satoshis);
    });
    const auto same = [](const PotPayment& a, const PotPayment& b) { return a.txid == b.txid; };
    payments.erase(std::unique(payments.begin(), payments.end(), same), payments.end());
    std::sort(payments.begin(), payments.end(), [](const PotPayment& a, const PotPayment& b) {
        return std::tie(a.burial, a.time, a.txid) < std::tie(b.burial, b.time, b.txid);
    });
    return payments;
}

// The week in which a payment counts: that of its block, and for one that waits for a block the present one.
std::optional<int64_t> WeekOf(const PotPayment& payment, std::optional<int64_t> now) {
    switch (payment.burial) {
        case Burial::kMined:
            return WeekStart(payment.time);
        case Burial::kWaiting:
            return now ? std::optional(WeekStart(*now)) : std::nullopt;
        case Burial::kNotTold:
            break;
    }
    return std::nullopt;
}

// A whole number of percent of an amount, rounded down; no intermediate result is larger than the amount.
int64_t PercentOf(int64_t satoshis, int percent) {
    return satoshis / 100 * percent + satoshis % 100 * percent / 100;
}

// The places as they fill up, best row first.
struct Podium {
    bool one_each = false;
    std::vector<const JudgedRow*> rows = {};
    std::set<std::string> players = {};

    bool Holds(const JudgedRow& row) const { return one_each && players.contains(Lower(row.pubkey)); }
    bool IsFull() const { return rows.size() == kPlaces; }
    void Take(const JudgedRow& row) {
        rows.push_back(&row);
        players.insert(Lower(row.pubkey));
    }
};

void ShareOut(const Podium& podium, Settlement& settlement) {
    if (podium.rows.empty()) {
        settlement.kept = settlement.pot;
        return;
    }
    int64_t rest = settlement.pot;
    for (std::size_t i = 0; i < podium.rows.size(); ++i) {
        Share share;
        share.place = static_cast<int>(i) + 1;
        share.percent = kPercents[podium.rows.size() - 1][i];
        share.satoshis = PercentOf(settlement.pot, share.percent);
        share.row = *podium.rows[i];
        Hash160 hash;
        share.has_address = DecodeAddress(share.row.pay_addr, hash);
        rest -= share.satoshis;
        settlement.shares.push_back(std::move(share));
    }
    settlement.shares.front().satoshis += rest;
    for (const Share& share : settlement.shares) {
        (share.has_address ? settlement.due : settlement.held) += share.satoshis;
    }
}

}  // namespace

Settlement SettleWeek(const SettlementInput& input) {
    Settlement settlement;
    settlement.week_start = input.week_start;
    settlement.one_each = input.one_each;
    std::set<SettlementDoubt> doubts;
    if (!input.known_at || *input.known_at < input.week_start + kWeekSeconds + kLateRowSeconds) {
        doubts.insert(SettlementDoubt::kWeekOpen);
    }
    if (!input.all_rows_listed) doubts.insert(SettlementDoubt::kRowsNotListed);
    if (!input.all_payments_listed) doubts.insert(SettlementDoubt::kPaymentsNotListed);

    for (PotPayment& payment : OrderedPayments(input.payments)) {
        const std::optional<int64_t> week = WeekOf(payment, input.known_at);
        if (!week) {
            doubts.insert(SettlementDoubt::kPaymentTimeNotTold);
            settlement.undated.push_back(std::move(payment));
        } else if (*week == input.week_start && payment.is_entry) {
            settlement.pot = AddSatoshis(settlement.pot, payment.satoshis);
            settlement.entries.push_back(std::move(payment));
        } else if (*week == input.week_start) {
            settlement.others.push_back(std::move(payment));
        }
    }

    const std::vector<JudgedRow> rows = RankedRows(input.rows);
    Podium podium = {.one_each = input.one_each};
    for (const JudgedRow& row : rows) {
        const auto leave_out = [&](LeftOutWhy why) { settlement.left_out.push_back({why, row}); };
        if (row.standing == RowStanding::kNotRead) {
            doubts.insert(SettlementDoubt::kRowNotLookedAt);
            leave_out(LeftOutWhy::kNotLookedAt);
        } else if (row.standing == RowStanding::kUnsound) {
            leave_out(LeftOutWhy::kVerdict);
        } else if (row.week != input.week_start) {
            leave_out(LeftOutWhy::kOtherWeek);
        } else if (row.score < 1) {
            leave_out(LeftOutWhy::kNoScore);
        } else if (row.standing == RowStanding::kNotLookedAt) {
            // Were it sound, it would stand here.
            if (!podium.IsFull() && !podium.Holds(row)) doubts.insert(SettlementDoubt::kRowNotLookedAt);
            leave_out(LeftOutWhy::kNotLookedAt);
        } else if (podium.Holds(row)) {
            leave_out(LeftOutWhy::kSamePlayer);
        } else if (podium.IsFull()) {
            leave_out(LeftOutWhy::kBeneath);
        } else {
            if (!row.mined) doubts.insert(SettlementDoubt::kRowNotMined);
            podium.Take(row);
        }
    }
    if (settlement.pot > kMaxSatoshis) {
        doubts.insert(SettlementDoubt::kPotImpossible);
        settlement.kept = settlement.pot;
    } else {
        ShareOut(podium, settlement);
    }
    settlement.doubts.assign(doubts.begin(), doubts.end());
    return settlement;
}

const char* LeftOutName(LeftOutWhy why) {
    switch (why) {
        case LeftOutWhy::kVerdict:
            return "verdict";
        case LeftOutWhy::kOtherWeek:
            return "other-week";
        case LeftOutWhy::kNoScore:
            return "no-score";
        case LeftOutWhy::kNotLookedAt:
            return "not-looked-at";
        case LeftOutWhy::kSamePlayer:
            return "same-player";
        case LeftOutWhy::kBeneath:
            return "beneath";
    }
    return "";
}

const char* LeftOutText(LeftOutWhy why) {
    switch (why) {
        case LeftOutWhy::kVerdict:
            return "not sound";
        case LeftOutWhy::kOtherWeek:
            return "of another week";
        case LeftOutWhy::kNoScore:
            return "score below 1";
        case LeftOutWhy::kNotLookedAt:
            return "could not look";
        case LeftOutWhy::kSamePlayer:
            return "the player has a place already";
        case LeftOutWhy::kBeneath:
            return "beneath the third place";
    }
    return "";
}

const char* DoubtName(SettlementDoubt doubt) {
    switch (doubt) {
        case SettlementDoubt::kWeekOpen:
            return "week-open";
        case SettlementDoubt::kRowsNotListed:
            return "rows-not-listed";
        case SettlementDoubt::kRowNotLookedAt:
            return "row-not-looked-at";
        case SettlementDoubt::kRowNotMined:
            return "row-not-mined";
        case SettlementDoubt::kPaymentsNotListed:
            return "payments-not-listed";
        case SettlementDoubt::kPaymentTimeNotTold:
            return "payment-time-not-told";
        case SettlementDoubt::kPotImpossible:
            return "pot-impossible";
    }
    return "";
}

const char* DoubtText(SettlementDoubt doubt) {
    switch (doubt) {
        case SettlementDoubt::kWeekOpen:
            return "the week was not over for a day; rows and entries may still come";
        case SettlementDoubt::kRowsNotListed:
            return "there may be rows that are not listed";
        case SettlementDoubt::kRowNotLookedAt:
            return "a row that could have a place could not be looked at";
        case SettlementDoubt::kRowNotMined:
            return "a row with a place is not known to be in a block";
        case SettlementDoubt::kPaymentsNotListed:
            return "there may be payments to the pot that are not listed";
        case SettlementDoubt::kPaymentTimeNotTold:
            return "when a payment to the pot was mined is not told; it may be of this week";
        case SettlementDoubt::kPotImpossible:
            return "the entries come to more than there are coins; nothing is due";
    }
    return "";
}

}  // namespace brickfall
