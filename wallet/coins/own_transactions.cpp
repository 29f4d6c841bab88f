#include "wallet/coins/own_transactions.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

#include "base/text.h"
#include "wallet/coins/spent_set.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/keys/key_derivation.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/protocol/address.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/outpoint.h"
#include "wallet/protocol/script.h"

namespace brickfall {

std::string& last_broadcast_txid = *new std::string;
std::string& last_recorded_txid = *new std::string;

namespace {

// True with the hash that a payment script pays; false for every other form of script.
bool PaidHash(const ByteBuffer& script, Hash160& hash) {
    if (script.size() != 25) return false;
    std::copy_n(script.begin() + 3, hash.size(), hash.begin());
    return script == P2pkhScript(hash);
}

bool AddressPays(std::string_view address, const Hash160& hash) {
    Hash160 decoded{};
    return DecodeAddress(address, decoded) && decoded == hash;
}

PendingOutput MakePending(const std::string& txid, uint32_t vout, int64_t value, const Hash160& hash,
                          std::span<const SpendInput> inputs) {
    PendingOutput pending{txid, vout, value, wallet_keys.priv, wallet_keys.pub, hash};
    const auto owner = std::find_if(inputs.begin(), inputs.end(), [&](const SpendInput& input) {
        return !input.priv.empty() && input.hash == hash;
    });
    if (owner != inputs.end()) {
        pending.priv = owner->priv;
        pending.pub = owner->pub;
    }
    return pending;
}

void RememberOwnOutput(PendingOutput pending) {
    const Utxo utxo{pending.txid, pending.vout, pending.value};
    const std::string address = AddressForHash(pending.hash);
    pending_outputs.push_back(std::move(pending));
    AddToCache(address, utxo);
}

}  // namespace

void RecordSentTx(std::span<const SpendInput> inputs, std::span<const PayOutput> outputs,
                  const std::string& txid, const Hash160& change_hash) {
    if (IsTxidText(txid)) last_recorded_txid = txid;
    MarkSpent(inputs);
    PruneCacheOfSpent();
    std::erase_if(pending_outputs, [](const PendingOutput& each) { return IsSpent(each.txid, each.vout); });

    for (std::size_t i = 0; i < outputs.size(); ++i) {
        const PayOutput& output = outputs[i];
        Hash160 hash{};
        if (output.value < 1 || !PaidHash(output.script, hash) || !IsOurHash(hash, inputs, change_hash)) {
            continue;
        }
        const auto vout = static_cast<uint32_t>(i);
        const Utxo outpoint{txid, vout, output.value};
        const bool known =
            std::any_of(pending_outputs.begin(), pending_outputs.end(),
                        [&](const PendingOutput& each) { return SameOutpoint(each, outpoint); });
        if (!known) RememberOwnOutput(MakePending(txid, vout, output.value, hash, inputs));
    }
}

bool IsOurHash(const Hash160& hash, std::span<const SpendInput> inputs, const Hash160& change_hash) {
    if (hash == change_hash) return true;
    const auto owns = [&](const SpendInput& input) { return input.hash == hash; };
    return std::any_of(inputs.begin(), inputs.end(), owns) || AddressPays(wallet_keys.address, hash) ||
           FindOwnedHash(hash) != nullptr;
}

std::string AddressForHash(const Hash160& hash) {
    if (AddressPays(wallet_keys.address, hash)) return wallet_keys.address;
    if (const OwnedAddress* owned = FindOwnedHash(hash)) return owned->address;
    const auto entry = std::find_if(utxo_cache.begin(), utxo_cache.end(), [&](const UtxoCacheEntry& each) {
        return AddressPays(each.address, hash);
    });
    return entry == utxo_cache.end() ? std::string() : entry->address;
}

}  // namespace brickfall
