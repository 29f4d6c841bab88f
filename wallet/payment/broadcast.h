// broadcast.h - sends a signed transaction along its routes, decides whether it went out, and does the
// bookkeeping that makes its change spendable at once. wallet_mutex is held by the caller throughout.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "wallet/protocol/transaction.h"

namespace brickfall {

// Guarded by wallet_mutex.
extern std::string& last_broadcast_txid;
extern std::string& last_recorded_txid;

// "success: " and the id, or a text that begins with "error: ". `txid_out` is set before any network call.
std::string BroadcastTx(std::span<const SpendInput> inputs, std::span<const PayOutput> outputs,
                        const Hash160& change_hash, std::string& txid_out);
bool ArcSubmit(const std::string& hex, const std::string& own_id, std::string& error);
bool IsMissingInputsText(std::string_view text);
void RecordSentTx(std::span<const SpendInput> inputs, std::span<const PayOutput> outputs,
                  const std::string& txid, const Hash160& change_hash);
bool IsOurHash(const Hash160& hash, std::span<const SpendInput> inputs, const Hash160& change_hash);
std::string AddressForHash(const Hash160& hash);

}  // namespace brickfall
