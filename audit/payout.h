// payout.h - the settlement of a week: what the entries have brought to the pot, and who is due what of it.
// Pure, and the same from the same rows and payments in whatever order they come. Nothing is paid here.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "board/watch_reader.h"

namespace brickfall {

// A week's rows may be mined late: a settlement is final this long after the week's end at the earliest.
inline constexpr int64_t kLateRowSeconds = 86'400;

// Whether a block holds it.
enum class Burial {
    kMined,
    kWaiting,  // seen, and in no block yet
    kNotTold   // nobody has said when, or whether, it was mined
};

// A transaction that pays the pot's address.
struct PotPayment {
    std::string txid = {};
    int64_t satoshis = 0;   // all that it pays there, 0 to kMaxSatoshis
    bool is_entry = false;  // pays the house its share and the pot its own
    Burial burial = Burial::kNotTold;
    int64_t time = 0;      // of its block, Unix seconds; 0 without one
    std::string why = {};  // where that is not told
};

// What is known of a row.
enum class RowStanding {
    kSound,
    kUnsound,      // a verdict stands against it
    kNotLookedAt,  // no verdict, but some look-up failed
    kNotRead       // not even its week and its score are known
};

// A recorded score as it was judged.
struct JudgedRow : ChainRow {
    RowStanding standing = RowStanding::kNotRead;
    std::string why;  // where it is not sound
    bool mined = false;
};

struct SettlementInput {
    int64_t week_start = 0;
    bool one_each = false;             // a player, by identity key, has one place at most
    std::optional<int64_t> known_at;   // the rows and payments are those of this time; nothing: of any time
    bool all_rows_listed = false;      // no row of the week is missing but for a failure told in `rows`
    bool all_payments_listed = false;  // the same of the payments
    std::vector<JudgedRow> rows;       // of any week; those with the same id count once
    std::vector<PotPayment> payments;  // the same
};

struct Share {
    int place = 0;  // 1 to 3
    int percent = 0;
    int64_t satoshis = 0;
    bool has_address = false;  // false: the share stays the player's, and there is nowhere to send it
    JudgedRow row;
};

// Why a row has no share.
enum class LeftOutWhy { kVerdict, kOtherWeek, kNoScore, kNotLookedAt, kSamePlayer, kBeneath };

struct LeftOutRow {
    LeftOutWhy why = LeftOutWhy::kBeneath;
    JudgedRow row;
};

// What may still change the settlement.
enum class SettlementDoubt {
    kWeekOpen,            // it runs, or ended less than kLateRowSeconds ago
    kRowsNotListed,       // there may be rows that nobody has listed
    kRowNotLookedAt,      // a row that could have a place is not judged to the end
    kRowNotMined,         // a row with a place is in no block
    kPaymentsNotListed,   // there may be payments that nobody has listed
    kPaymentTimeNotTold,  // a payment may be one of the week
    kPotImpossible        // the entries come to more than all the coins that there can be; nothing is due
};

// satoshis: pot = due + held + kept.
struct Settlement {
    int64_t week_start = 0;
    bool one_each = false;
    int64_t pot = 0;
    int64_t due = 0;                      // of the shares with an address
    int64_t held = 0;                     // of the shares without one
    int64_t kept = 0;                     // shared out to nobody, since no row is sound
    std::vector<Share> shares;            // by place
    std::vector<PotPayment> entries;      // of the week, by time and id
    std::vector<PotPayment> others;       // of the week, to the pot, but no entries: not shared out
    std::vector<PotPayment> undated;      // of a week that nobody has told: not shared out
    std::vector<LeftOutRow> left_out;     // in the board's order, those not read last
    std::vector<SettlementDoubt> doubts;  // in the order above; none: final
};

Settlement SettleWeek(const SettlementInput& input);

// Names for programs, such as "same-player", and words for people.
const char* LeftOutName(LeftOutWhy why);
const char* LeftOutText(LeftOutWhy why);
const char* DoubtName(SettlementDoubt doubt);
const char* DoubtText(SettlementDoubt doubt);

}  // namespace brickfall
