#include "wallet/coins/utxo_cache.h"

#include <algorithm>
#include <cstddef>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "base/clock.h"
#include "base/text.h"
#include "wallet/coins/spent_set.h"
#include "wallet/protocol/address.h"

namespace brickfall {

std::vector<UtxoCacheEntry>& utxo_cache = *new std::vector<UtxoCacheEntry>;
std::vector<PendingOutput>& pending_outputs = *new std::vector<PendingOutput>;

namespace {

constexpr int64_t kCacheFreshNs = 8'000'000'000;

// Where the entry of an address stands in utxo_cache, so that a wallet of a thousand addresses is not walked
// for each of them. Guarded by wallet_mutex.
std::unordered_map<std::string, std::size_t>& cache_index = *new std::unordered_map<std::string, std::size_t>;

UtxoCacheEntry* FindEntry(std::string_view address) {
    if (cache_index.size() != utxo_cache.size()) {
        cache_index.clear();
        for (std::size_t i = 0; i < utxo_cache.size(); ++i) cache_index.emplace(utxo_cache[i].address, i);
    }
    const auto place = cache_index.find(std::string(address));
    return place == cache_index.end() ? nullptr : &utxo_cache[place->second];
}

void AddEntry(UtxoCacheEntry entry) {
    cache_index.emplace(entry.address, utxo_cache.size());
    utxo_cache.push_back(std::move(entry));
}

}  // namespace

void StoreUtxoList(const std::string& address, const std::vector<Utxo>& list, bool ok, bool merge) {
    UtxoCacheEntry* entry = FindEntry(address);
    if (!ok) {
        if (entry == nullptr) AddEntry({address, list, MonotonicNs(), /*valid=*/false});
        return;
    }
    std::vector<Utxo> merged = list;
    std::unordered_set<std::string> present;
    for (const Utxo& utxo : list) present.insert(EitherOrderKey(utxo.txid, utxo.vout));
    const auto add_missing = [&](const Utxo& utxo) {
        if (IsSpent(utxo.txid, utxo.vout)) return;
        if (present.insert(EitherOrderKey(utxo.txid, utxo.vout)).second) merged.push_back(utxo);
    };
    if (merge && entry != nullptr) {
        for (const Utxo& old : entry->utxos) add_missing(old);
    }
    Hash160 hash;
    if (!pending_outputs.empty() && DecodeAddress(address, hash)) {
        for (const PendingOutput& pending : pending_outputs) {
            if (pending.hash == hash) add_missing({pending.txid, pending.vout, pending.value});
        }
    }
    std::stable_sort(merged.begin(), merged.end(), IsLarger);
    if (entry == nullptr) {
        AddEntry({address, std::move(merged), MonotonicNs(), /*valid=*/true});
        return;
    }
    entry->utxos = std::move(merged);
    entry->fetched_at = MonotonicNs();
    entry->valid = true;
}

void PruneCacheOfSpent() {
    for (UtxoCacheEntry& entry : utxo_cache) DropSpent(entry.utxos);
}

void PrunePending(const std::string& address, const std::vector<Utxo>& list) {
    Hash160 hash;
    if (pending_outputs.empty() || !DecodeAddress(address, hash)) return;
    std::unordered_set<std::string> listed;
    for (const Utxo& utxo : list) listed.insert(EitherOrderKey(utxo.txid, utxo.vout));
    std::erase_if(pending_outputs, [&](const PendingOutput& pending) {
        if (pending.hash != hash) return false;
        return IsSpent(pending.txid, pending.vout) ||
               !listed.contains(EitherOrderKey(pending.txid, pending.vout));
    });
}

void AddToCache(const std::string& address, const Utxo& utxo) {
    if (address.empty() || !IsTxidText(utxo.txid)) return;
    UtxoCacheEntry* entry = FindEntry(address);
    if (entry == nullptr) {
        AddEntry({address, {utxo}, MonotonicNs(), /*valid=*/true});
        return;
    }
    const bool known = std::any_of(entry->utxos.begin(), entry->utxos.end(),
                                   [&utxo](const Utxo& old) { return SameOutpoint(old, utxo); });
    if (!known) {
        entry->utxos.insert(std::upper_bound(entry->utxos.begin(), entry->utxos.end(), utxo, IsLarger), utxo);
    }
    entry->fetched_at = MonotonicNs();
    entry->valid = true;
}

bool CachedUtxos(std::string_view address, std::vector<Utxo>& list, bool& valid) {
    list.clear();
    valid = false;
    const UtxoCacheEntry* entry = FindEntry(address);
    if (entry == nullptr) return false;
    list = entry->utxos;
    valid = entry->valid;
    return true;
}

const UtxoCacheEntry* FindCacheEntry(std::string_view address) { return FindEntry(address); }

bool IsCacheFresh(std::string_view address) {
    const UtxoCacheEntry* entry = FindEntry(address);
    return entry != nullptr && entry->valid && MonotonicNs() - entry->fetched_at < kCacheFreshNs;
}

void ClearUtxoState() {
    utxo_cache.clear();
    cache_index.clear();
    pending_outputs.clear();
    ClearSpentSet();
}

}  // namespace brickfall
