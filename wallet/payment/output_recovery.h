// output_recovery.h - finds the wallet's outputs of a transaction of its own that memory has lost.
#pragma once

#include <string_view>

namespace brickfall {

// Network, under wallet_mutex. True when an output became pending.
bool RecoverOutputsFromTx(std::string_view txid);

}  // namespace brickfall
