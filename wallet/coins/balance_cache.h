// balance_cache.h - the one number of the balance line, from sources of falling freshness.
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

namespace brickfall {

inline constexpr int64_t kSpendHoldNs = 45'000'000'000;
inline constexpr int64_t kSpendHoldMargin = 1'000'000;
inline constexpr int64_t kSpendTolerance = 8'000;

// Caller holds wallet_mutex. Satoshis, or -1 when nothing is known.
int64_t SpendableBalance();  // of the current address, as the caches have it
int64_t ReadBalance();
int64_t LastBalance();  // what ReadBalance or NoteSpend last came to, or -1
void NoteSpend(int64_t spent);
void WriteFaceBalance(int64_t satoshis);
int64_t ReadFaceBalance(std::string_view address);
void ClearBalanceMemory();

// What the label shows, for those who do not wait for the wallet.
extern std::atomic<int64_t>& shown_balance;

}  // namespace brickfall
