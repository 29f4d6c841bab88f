// shown_balance.h - the balance that a window shows, without waiting for a payment.
#pragma once

#include <cstdint>

namespace brickfall {

// What the label shows. Takes wallet_mutex where it is free; while another thread holds it, the number is the
// one that it came to before, so that no window waits for a payment.
int64_t ReadShownBalance();

int64_t CachedBalance();  // takes wallet_mutex

}  // namespace brickfall
