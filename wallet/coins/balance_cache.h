// balance_cache.h - the one number of the balance line, from sources of falling freshness.
#pragma once

#include <cstdint>
#include <string_view>

namespace brickfall {

inline constexpr int64_t kSpendHoldNs = 45'000'000'000;
inline constexpr int64_t kSpendHoldMargin = 1'000'000;
inline constexpr int64_t kSpendTolerance = 8'000;

// Caller holds wallet_mutex. Satoshis, or -1 when nothing is known.
int64_t ReadBalance();
void NoteSpend(int64_t spent);
void WriteFaceBalance(int64_t satoshis);
int64_t ReadFaceBalance(std::string_view address);
void ClearBalanceMemory();

// What the label shows. Takes wallet_mutex where it is free; while another thread holds it, the number is the
// one that it came to before, so that no window waits for a payment.
int64_t ReadShownBalance();

int64_t CachedBalance();  // takes wallet_mutex

}  // namespace brickfall
