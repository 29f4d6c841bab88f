// pay_drivers.h - pays: collects, builds, signs, broadcasts, and reacts to what the network says, in up to
// three attempts. Each driver blocks and gives "success: " and the id, or a text that begins with "error: ".
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "wallet/keys/wallet_keys.h"
#include "wallet/protocol/hashes.h"
#include "wallet/protocol/transaction.h"

namespace brickfall {

inline constexpr int64_t kArcadeHouseSats = 2'000;
inline constexpr int64_t kArcadePotSats = 3'000;
inline constexpr int64_t kMarkerSats = 1;
inline constexpr int64_t kReportFeeSats = 1'000;

// These take wallet_mutex.
std::string PayArcadeEntry(std::string_view house_address, std::string_view pot_address);
std::string PayArcadeScore(std::string_view watch_address, std::string_view payload);
std::string PayReport(std::string_view payload);

// What PayArcadeScore would pay in fees for a payload of this length from coins of these values, in spending
// order. With no coins it is reckoned for one that leaves change. Pure; any thread.
int64_t EstimateScoreFee(std::size_t payload_bytes, std::span<const int64_t> coins);

// These run under it; PayOutputs ends with `lock` held as it began.
std::string PayOutputs(WalletLock& lock, std::span<const PayOutput> outputs);
std::string AdoptBroadcast(const std::string& txid, std::span<const SpendInput> saved_inputs,
                           std::span<const PayOutput> saved_outputs, const Hash160& wallet_hash);
std::string FinishPay(std::string text, int64_t spent);  // tells the balance cache of a success

}  // namespace brickfall
