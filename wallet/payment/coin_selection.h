// coin_selection.h - the only road from the output cache to the inputs of a payment. wallet_mutex is held by
// the caller.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "base/secret.h"
#include "wallet/coins/reservations.h"
#include "wallet/protocol/hashes.h"
#include "wallet/protocol/outpoint.h"
#include "wallet/protocol/transaction.h"

namespace brickfall {

struct Collection {
    std::vector<SpendInput> inputs;
    int64_t total = 0;
    std::unordered_set<std::string> taken;  // EitherOrderKey of each input
    Reserves reserves;
};

void AddCandidate(Collection& collection, const Utxo& utxo, const SecretString& priv, const std::string& pub,
                  const Hash160& hash, std::string_view address);
void AddPendingCandidates(Collection& collection);  // the largest first

// Everything that may be spent, in spending order; of the pending outputs, those that are among it leave
// their list. False with nothing found, or with `error` set: then the guard cannot tell, and nothing may be
// spent.
bool CollectSpendable(std::vector<SpendInput>& inputs, int64_t& total, std::string& error);

}  // namespace brickfall
