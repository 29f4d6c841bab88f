// spendable.h - which coins may be spent, and in which order: those of each address as the cache lists them,
// then the pending ones. wallet_mutex is held by the caller.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "wallet/coins/reservations.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/protocol/outpoint.h"

namespace brickfall {

// One walk over the coins.
struct CoinWalk {
    Reserves reserves;
    std::unordered_set<std::string> taken;  // EitherOrderKey of each coin that may be spent
};

// False with `error` set when the guard cannot tell; then nothing may be spent.
bool BeginCoinWalk(CoinWalk& walk, std::string& error);

// Whether the coin may be spent and has not come before. `address` owns it; empty where no address lists it.
bool TakeCoin(CoinWalk& walk, const Utxo& coin, std::string_view address);

std::vector<const PendingOutput*> PendingLargestFirst();

// The values of all that a payment could spend now, in its order. Asks no service and changes nothing; empty
// when the guard cannot tell.
std::vector<int64_t> SpendableValues();

}  // namespace brickfall
