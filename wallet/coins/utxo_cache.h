// utxo_cache.h - the outputs that the wallet's addresses hold, as last listed, and those of the program's own
// transactions that no indexer has seen yet. wallet_mutex is held by the caller.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/secret.h"
#include "wallet/protocol/hashes.h"
#include "wallet/protocol/outpoint.h"

namespace brickfall {

struct PendingOutput {
    std::string txid;
    uint32_t vout = 0;
    int64_t value = 0;
    SharedSecret priv;  // empty: the wallet's current key
    std::string pub;    // empty: the wallet's current public key
    Hash160 hash{};
};

struct UtxoCacheEntry {
    std::string address;
    std::vector<Utxo> utxos;  // in spending order: the largest first
    int64_t fetched_at = 0;   // monotonic nanoseconds
    bool valid = false;
};

// Guarded by wallet_mutex.
extern std::vector<UtxoCacheEntry>& utxo_cache;
extern std::vector<PendingOutput>& pending_outputs;

void StoreUtxoList(const std::string& address, const std::vector<Utxo>& list, bool ok, bool merge);
void PruneCacheOfSpent();
void PrunePending(const std::string& address, const std::vector<Utxo>& list);
void AddToCache(const std::string& address, const Utxo& utxo);
bool CachedUtxos(std::string_view address, std::vector<Utxo>& list, bool& valid);
const UtxoCacheEntry* FindCacheEntry(std::string_view address);
bool IsCacheFresh(std::string_view address);

void ClearUtxoState();  // cache, pending list and spent set

}  // namespace brickfall
