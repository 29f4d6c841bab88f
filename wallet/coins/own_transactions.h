// own_transactions.h - the bookkeeping of a transaction that went out, which makes its change spendable at
// once. wallet_mutex is held by the caller.
#pragma once

#include <span>
#include <string>

#include "wallet/protocol/hashes.h"
#include "wallet/protocol/transaction.h"

namespace brickfall {

// Guarded by wallet_mutex.
extern std::string& last_broadcast_txid;
extern std::string& last_recorded_txid;

// Marks the inputs spent and makes the outputs that are the wallet's own pending.
void RecordSentTx(std::span<const SpendInput> inputs, std::span<const PayOutput> outputs,
                  const std::string& txid, const Hash160& change_hash);
bool IsOurHash(const Hash160& hash, std::span<const SpendInput> inputs, const Hash160& change_hash);
std::string AddressForHash(const Hash160& hash);

}  // namespace brickfall
