#include "wallet/payment/coin_selection.h"

#include <string_view>
#include <utility>

#include "base/secret.h"
#include "wallet/coins/own_transactions.h"
#include "wallet/coins/spendable.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/json/json_numbers.h"
#include "wallet/keys/key_derivation.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/payment/output_recovery.h"
#include "wallet/protocol/hashes.h"
#include "wallet/protocol/outpoint.h"

namespace brickfall {
namespace {

struct Collection {
    std::vector<SpendInput> inputs;
    int64_t total = 0;
    CoinWalk walk;
};

void AddCandidate(Collection& collection, const Utxo& utxo, const SharedSecret& priv, const std::string& pub,
                  const Hash160& hash, std::string_view address) {
    if (!TakeCoin(collection.walk, utxo, address)) return;
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
    const SharedSecret current = wallet_keys.priv;
    for (const PendingOutput* pending : PendingLargestFirst()) {
        const SharedSecret& priv = pending->priv.empty() ? current : pending->priv;
        const std::string& pub = pending->pub.empty() ? wallet_keys.pub : pending->pub;
        AddCandidate(collection, {pending->txid, pending->vout, pending->value}, priv, pub, pending->hash,
                     /*address=*/"");
    }
}

}  // namespace

bool CollectSpendable(std::vector<SpendInput>& inputs, int64_t& total, std::string& error) {
    inputs.clear();
    total = 0;
    error.clear();
    Collection collection;
    if (!BeginCoinWalk(collection.walk, error)) return false;
    std::string pub, derived;
    for (const OwnedAddress& owned : OwnedAddresses()) {
        const UtxoCacheEntry* entry = FindCacheEntry(owned.address);
        if (entry == nullptr || !entry->valid || entry->utxos.empty()) continue;
        SecretString derived_priv;
        if (!DeriveAtPath(owned.path, derived_priv, pub, derived)) continue;
        const SharedSecret priv = std::move(derived_priv);
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
        return collection.walk.taken.contains(EitherOrderKey(pending.txid, pending.vout));
    });
    inputs = std::move(collection.inputs);
    total = collection.total;
    return !inputs.empty();
}

}  // namespace brickfall
