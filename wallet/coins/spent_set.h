// spent_set.h - the outputs that the wallet has spent, whatever a service still lists. wallet_mutex is held
// by the caller.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "wallet/protocol/outpoint.h"
#include "wallet/protocol/transaction.h"

namespace brickfall {

extern std::unordered_set<std::string>& spent_set;  // outpoint keys; guarded by wallet_mutex

void DropSpent(std::vector<Utxo>& list);
bool IsSpent(std::string_view txid, uint32_t vout);  // in either byte order

void MarkSpent(std::span<const SpendInput> inputs);            // both byte orders of each, and saves the file
void MarkSpentInMemory(std::string_view txid, uint32_t vout);  // without the save

// Adds what the file holds. False when it is there and cannot be read, which EnsureSpentSet tries again.
bool LoadSpentSet();

// True when the set holds what the file does. Else nobody knows what is spent, and `error` says why.
bool EnsureSpentSet(std::string& error);
void ClearSpentSet();

// Entries that another installation of this wallet has written meanwhile stay; a file that cannot be read is
// not replaced.
void SaveSpentSet();

}  // namespace brickfall
