// coin_selection.h - the only road from the output cache to the inputs of a payment. wallet_mutex is held by
// the caller.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "wallet/protocol/transaction.h"

namespace brickfall {

// Everything that may be spent, in spending order; of the pending outputs, those that are among it leave
// their list. False with nothing found, or with `error` set: then the guard cannot tell, and nothing may be
// spent.
bool CollectSpendable(std::vector<SpendInput>& inputs, int64_t& total, std::string& error);

}  // namespace brickfall
