// address_refresh.h - asks the services for many addresses at once. Network; no lock is needed.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "wallet/protocol/outpoint.h"

namespace brickfall {

struct AddressRefresh {
    std::string address;
    std::vector<Utxo> utxos;
    bool ok = false;
    std::set<std::string> guard_keys;
    bool guard_ok = false;
    bool complete = false;
    bool scan_only = false;      // its outputs are known; only its ordinals are asked for
    bool scanned = false;        // the ordinals service was asked
    bool tokens_listed = false;  // and has told of the tokens, too
};

// Of which records the ordinals are asked for, too.
enum class OrdinalScans { kNone, kWhereCoins, kAll };

// Fetches for every record, at most kMostFetchesAtOnce at a time: each takes a thread and a descriptor or
// two, and a wallet may have a thousand addresses.
inline constexpr std::size_t kMostFetchesAtOnce = 64;
void FetchRefreshRecords(std::vector<AddressRefresh>& records, OrdinalScans scans);

}  // namespace brickfall
