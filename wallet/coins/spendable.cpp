#include "wallet/coins/spendable.h"

#include <algorithm>

#include "base/text.h"
#include "wallet/coins/ordinal_guard.h"
#include "wallet/coins/spent_set.h"
#include "wallet/keys/key_derivation.h"

namespace brickfall {

bool BeginCoinWalk(CoinWalk& walk, std::string& error) {
    return EnsureSpentSet(error) && LoadReserves(walk.reserves, error);
}

bool TakeCoin(CoinWalk& walk, const Utxo& coin, std::string_view address) {
    if (!IsTxidText(coin.txid) || IsSpent(coin.txid, coin.vout)) return false;
    if (address.empty() ? IsOrdinalAnywhere(coin) : IsOrdinalForAddress(address, coin)) return false;
    if (IsReserved(walk.reserves, coin.txid, coin.vout)) return false;
    return walk.taken.insert(EitherOrderKey(coin.txid, coin.vout)).second;
}

std::vector<const PendingOutput*> PendingLargestFirst() {
    std::vector<const PendingOutput*> largest_first;
    for (const PendingOutput& pending : pending_outputs) largest_first.push_back(&pending);
    std::stable_sort(largest_first.begin(), largest_first.end(),
                     [](const auto* a, const auto* b) { return a->value > b->value; });
    return largest_first;
}

std::vector<int64_t> SpendableValues() {
    std::vector<int64_t> values;
    CoinWalk walk;
    std::string error;
    if (!BeginCoinWalk(walk, error)) return values;
    for (const OwnedAddress& owned : OwnedAddresses()) {
        const UtxoCacheEntry* const entry = FindCacheEntry(owned.address);
        if (entry == nullptr || !entry->valid) continue;
        for (const Utxo& coin : entry->utxos) {
            if (TakeCoin(walk, coin, owned.address)) values.push_back(coin.value);
        }
    }
    for (const PendingOutput* const pending : PendingLargestFirst()) {
        const Utxo coin = {pending->txid, pending->vout, pending->value};
        if (TakeCoin(walk, coin, /*address=*/"")) values.push_back(coin.value);
    }
    return values;
}

}  // namespace brickfall
