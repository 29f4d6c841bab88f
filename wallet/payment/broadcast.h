// broadcast.h - sends a signed transaction along its routes, and decides whether it went out. wallet_mutex is
// held by the caller throughout.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "wallet/protocol/hashes.h"
#include "wallet/protocol/transaction.h"

namespace brickfall {

// "success: " and the id, or a text that begins with "error: ". `txid_out` is set before any network call.
std::string BroadcastTx(std::span<const SpendInput> inputs, std::span<const PayOutput> outputs,
                        const Hash160& change_hash, std::string& txid_out);
bool ArcSubmit(const std::string& hex, const std::string& own_id, std::string& error);
bool IsMissingInputsText(std::string_view text);

}  // namespace brickfall
