// utxo_discovery.h - which outputs the wallet's addresses hold, from the services' listings, from memory, and
// from the program's own transactions that no indexer has seen yet. All state is guarded by wallet_mutex,
// held by the caller; only the network operations run without it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <set>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "wallet/keys/wallet_keys.h"
#include "wallet/protocol/encodings.h"

namespace brickfall {

struct Utxo {
    std::string txid;  // 64 hex digits, display byte order, case as the service wrote it
    uint32_t vout = 0;
    int64_t value = 0;  // satoshis, above 0
};

struct PendingOutput {
    std::string txid;
    uint32_t vout = 0;
    int64_t value = 0;
    SecretString priv;  // empty: the wallet's current key
    std::string pub;    // empty: the wallet's current public key
    Hash160 hash{};
};

struct UtxoCacheEntry {
    std::string address;
    std::vector<Utxo> utxos;  // in spending order: the largest first
    int64_t fetched_at = 0;   // monotonic nanoseconds
    bool valid = false;
};

struct AddressRefresh {
    std::string address;
    std::vector<Utxo> utxos;
    bool ok = false;
    std::set<std::string> guard_keys;
    bool guard_ok = false;
    bool complete = false;
    bool scan_only = false;  // its outputs are known; only its ordinals are asked for
    bool scanned = false;    // the ordinals service was asked
};

// Of which records the ordinals are asked for, too.
enum class OrdinalScans { kNone, kWhereCoins, kAll };

// Guarded by wallet_mutex.
extern std::vector<UtxoCacheEntry>& utxo_cache;
extern std::vector<PendingOutput>& pending_outputs;
extern std::unordered_set<std::string>& spent_set;  // outpoint keys; filled by the spend guard

// The order of every list of coins. What is spent first must not be what strangers sent last: a coin of a few
// satoshis costs more to spend than it brings. Coins of one value keep the order that they came in.
inline bool IsLarger(const Utxo& a, const Utxo& b) { return a.value > b.value; }

std::string OutpointKey(std::string_view txid, uint32_t vout);  // lower(txid) ":" vout
std::string FlipTxidHex(std::string_view txid);                 // bytes reversed; empty unless 64 characters
// The same text for both byte orders of an id: two outpoints are SameOutpoint when these are equal.
std::string EitherOrderKey(std::string_view txid, uint32_t vout);
bool IsSpent(std::string_view txid, uint32_t vout);  // in either byte order

// Both sides have `txid` and `vout`; equal in either byte order.
template <typename A, typename B>
bool SameOutpoint(const A& a, const B& b);
bool SameOutpointText(std::string_view txid_a, std::string_view txid_b);  // the ids alone

// Reads a listing as a service sends it: an array, or an object with one under `result`. False, with the list
// as it was, for every other text.
bool ParseUtxoList(std::string_view document, std::vector<Utxo>& list);

// Network, without wallet_mutex needed.
bool FetchUtxos(const std::string& address, std::vector<Utxo>& list, std::string& error,
                bool* complete = nullptr);
void DropMempoolSpent(const std::string& address, std::vector<Utxo>& list);
bool TxVisible(std::string_view txid);
bool ScanPlainOutputs(const std::string& address, std::vector<Utxo>& list);

// Fetches for every record, at most kMostFetchesAtOnce at a time: each takes a thread and a descriptor or
// two, and a wallet may have a thousand addresses.
inline constexpr std::size_t kMostFetchesAtOnce = 64;
void FetchRefreshRecords(std::vector<AddressRefresh>& records, OrdinalScans scans);

void WalletAddresses(std::vector<std::string>& list);
std::string WalletCacheId();

void StoreUtxoList(const std::string& address, const std::vector<Utxo>& list, bool ok, bool merge);
void PruneCacheOfSpent();
void PrunePending(const std::string& address, const std::vector<Utxo>& list);
void AddToCache(const std::string& address, const Utxo& utxo);
bool CachedUtxos(std::string_view address, std::vector<Utxo>& list, bool& valid);
const UtxoCacheEntry* FindCacheEntry(std::string_view address);
bool IsCacheFresh(std::string_view address);
void ApplyRefresh(const std::vector<AddressRefresh>& records);  // takes wallet_mutex

// Both release the caller's hold around their network work and take it back; it must be held exactly once.
// EnsureUtxoCache fetches what is not known of any address, and scans for ordinals where coins are listed
// that no good scan covers. It is true also when a service did not answer.
bool EnsureUtxoCache(WalletLock& lock, std::string& error);
void RescanPlainOutputs(WalletLock& lock);

int64_t SpendableBalance();  // satoshis of the current address, or -1

void ClearUtxoState();  // cache, pending list and spent set

template <typename A, typename B>
bool SameOutpoint(const A& a, const B& b) {
    return a.vout == b.vout && SameOutpointText(a.txid, b.txid);
}

}  // namespace brickfall
