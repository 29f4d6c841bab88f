// pot_history.h - the payments to the pot, recorded runs or not: what the chain API lists for its address,
// and the transactions themselves. Network; no state.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "audit/payout.h"
#include "audit/transaction_reader.h"

namespace brickfall {

// The transactions that pay the pot in a week and later.
struct PotHistory {
    int64_t week_start = 0;  // 0: of no week in particular
    int64_t known_at = 0;    // of what time that is, Unix seconds; 0: not told
    bool all_listed = false;
    std::string error = {};  // why they are not
    std::vector<AuditTransaction> transactions = {};
    std::vector<std::pair<std::string, std::string>> not_read = {};  // the ids of others, and why
};

// Finds a transaction; false with the reason in `error`. Called from several threads at once; throws nothing.
using FindTransaction =
    std::function<bool(const std::string& txid, AuditTransaction& transaction, std::string& error)>;

// Lists all that ever touched the pot's address and looks it up from the newest on, `threads` at a time,
// until that lies well before the week; leaves `known_at` alone. `progress` is told how many of how many are
// done.
PotHistory CollectPotHistory(int64_t week_start, std::size_t threads, const FindTransaction& find,
                             const std::function<void(std::size_t done, std::size_t of)>& progress);

// All outputs to the pot's address, satoshis. Pure.
int64_t PaidToPot(const AuditTransaction& transaction);

// What each pays the pot, as the settlement takes it. Pure.
std::vector<PotPayment> PaymentsToPot(const PotHistory& history);

}  // namespace brickfall
