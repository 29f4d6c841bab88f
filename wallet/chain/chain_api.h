// chain_api.h - what the chain API says of addresses and transactions. Network; no lock is needed.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "wallet/protocol/outpoint.h"

namespace brickfall {

// Reads a listing as a service sends it: an array, or an object with one under `result`. False, with the list
// as it was, for every other text.
bool ParseUtxoList(std::string_view document, std::vector<Utxo>& list);

// What an address holds, in spending order. `complete` tells whether the list proves that an output is gone.
bool FetchUtxos(const std::string& address, std::vector<Utxo>& list, std::string& error,
                bool* complete = nullptr);
void DropMempoolSpent(const std::string& address, std::vector<Utxo>& list);
bool TxVisible(std::string_view txid);

}  // namespace brickfall
