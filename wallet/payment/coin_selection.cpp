#include "wallet/payment/coin_selection.h"

#include <algorithm>
#include <utility>

#include "base/text.h"
#include "wallet/coins/ordinal_guard.h"
#include "wallet/coins/own_transactions.h"
#include "wallet/coins/spent_set.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/json/json_numbers.h"
#include "wallet/keys/key_derivation.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/payment/output_recovery.h"

namespace brickfall {

void AddCandidate(Collection& collection, const Utxo& utxo, const SecretString& priv, const std::string& pub,
                  const Hash160& hash, std::string_view address) {
    if (!IsTxidText(utxo.txid) || IsSpent(utxo.txid, utxo.vout)) return;
    if (address.empty() ? IsOrdinalAnywhere(utxo) : IsOrdinalForAddress(address, utxo)) return;
    if (IsReserved(collection.reserves, utxo.txid, utxo.vout)) return;
    if (!collection.taken.insert(EitherOrderKey(utxo.txid, utxo.vout)).second) return;

    SpendInput input;
    input.txid = utxo.txid;
    input.vout = utxo.vout;
    input.value = utxo.value;
    input.priv = priv;
    input.pub = pub;
    input.hash = hash;
    collection.inputs.push_back(std::move(input));
    collection.total = AddSatoshis(collection.total, utxo.value);
}

void AddPendingCandidates(Collection& collection) {
    std::vector<const PendingOutput*> largest_first;
    for (const PendingOutput& pending : pending_outputs) largest_first.push_back(&pending);
    std::stable_sort(largest_first.begin(), largest_first.end(),
                     [](const auto* a, const auto* b) { return a->value > b->value; });
    for (const PendingOutput* pending : largest_first) {
        const SecretString& priv = pending->priv.empty() ? wallet_keys.priv : pending->priv;
        const std::string& pub = pending->pub.empty() ? wallet_keys.pub : pending->pub;
        AddCandidate(collection, {pending->txid, pending->vout, pending->value}, priv, pub, pending->hash,
                     /*address=*/"");
    }
}

bool CollectSpendable(std::vector<SpendInput>& inputs, int64_t& total, std::string& error) {
    inputs.clear();
    total = 0;
    error.clear();
    if (!EnsureSpentSet(error)) return false;
    Collection collection;
    if (!LoadReserves(collection.reserves, error)) return false;
    SecretString priv;
    std::string pub, derived;
    for (const OwnedAddress& owned : OwnedAddresses()) {
        const UtxoCacheEntry* entry = FindCacheEntry(owned.address);
        if (entry == nullptr || !entry->valid || entry->utxos.empty()) continue;
        if (!DeriveAtPath(owned.path, priv, pub, derived)) continue;
        for (const Utxo& utxo : entry->utxos) {
            AddCandidate(collection, utxo, priv, pub, owned.hash, owned.address);
        }
    }
    AddPendingCandidates(collection);
    if (collection.inputs.empty() &&
        (RecoverOutputsFromTx(last_recorded_txid) || RecoverOutputsFromTx(last_broadcast_txid))) {
        AddPendingCandidates(collection);
    }
    std::erase_if(pending_outputs, [&collection](const PendingOutput& pending) {
        return collection.taken.contains(EitherOrderKey(pending.txid, pending.vout));
    });
    inputs = std::move(collection.inputs);
    total = collection.total;
    return !inputs.empty();
}

}  // namespace brickfall
