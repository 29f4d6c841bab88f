#include "wallet/session/coin_refresh.h"

#include <utility>

#include "base/secret.h"
#include "wallet/chain/ordinals_api.h"
#include "wallet/coins/ordinal_guard.h"
#include "wallet/coins/spent_set.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/keys/key_derivation.h"
#include "wallet/protocol/outpoint.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/wallet_paths.h"

namespace brickfall {
namespace {

constexpr char kWalletChangedText[] = "wallet changed.";

}  // namespace

bool ListOwnedAddresses(WalletLock& lock) {
    if (!LoadWallet()) return false;
    OwnedAddresses();
    const std::string identity = wallet_keys.identity_address;
    AddressSlice slice;
    const WipeAtExit wipe_slice(slice);
    while (NextAddressSlice(slice)) {
        lock.unlock();
        std::vector<OwnedAddress> addresses = DeriveAddresses(slice);
        lock.lock();
        if (!LoadWallet() || wallet_keys.identity_address != identity) return false;
        ListAddresses(slice, std::move(addresses));
    }
    return true;
}

void WalletAddresses(std::vector<std::string>& list) {
    list.clear();
    for (const OwnedAddress& owned : OwnedAddresses()) list.push_back(owned.address);
}

void ApplyRefresh(const std::vector<AddressRefresh>& records) {
    const WalletLock lock(wallet_mutex);
    for (const AddressRefresh& record : records) {
        std::vector<Utxo> unspent = record.utxos;
        DropSpent(unspent);
        StoreUtxoList(record.address, unspent, record.ok, /*merge=*/!record.complete);
        if (record.ok && record.complete) PrunePending(record.address, unspent);
        if (record.ok) NoteListing(record.address);
        if (record.scanned && !record.guard_ok) NoteFailedScan();
        // Where no coin was found and nobody was asked, there is nothing to guard, and no outage to tell of.
        const bool needs_no_guard = record.utxos.empty() && !record.scanned && !record.guard_ok;
        if (!needs_no_guard) StoreOrdinalGuard(record.address, record.guard_keys, record.guard_ok);
        // The scan counts, but the next payment asks again for the tokens that it could not tell.
        if (record.guard_ok && !record.tokens_listed) NoteListing(record.address);
    }
}

bool EnsureUtxoCache(WalletLock& lock, std::string& error) {
    error.clear();
    if (!LoadWallet()) {
        error = "no wallet";
        return false;
    }
    const std::string cache_id = WalletCacheId();
    if (!ListOwnedAddresses(lock) || WalletCacheId() != cache_id) {
        error = kWalletChangedText;
        return false;
    }
    std::vector<AddressRefresh> records;
    const bool may_scan = !ScanFailedLately();
    for (const OwnedAddress& owned : OwnedAddresses()) {
        const UtxoCacheEntry* entry = FindCacheEntry(owned.address);
        const bool known = entry != nullptr && entry->valid;
        if (known && (entry->utxos.empty() || !may_scan || IsCovered(owned.address))) continue;
        AddressRefresh& record = records.emplace_back();
        record.address = owned.address;
        record.scan_only = known;
    }
    if (records.empty()) return true;

    lock.unlock();
    FetchRefreshRecords(records, may_scan ? OrdinalScans::kWhereCoins : OrdinalScans::kNone);
    lock.lock();
    if (!LoadWallet() || WalletCacheId() != cache_id) {
        error = kWalletChangedText;
        return false;
    }
    ApplyRefresh(records);
    return true;
}

void RescanPlainOutputs(WalletLock& lock) {
    struct PlainScan {
        std::string address;
        std::vector<Utxo> utxos;
        bool ok = false;
    };
    std::vector<PlainScan> scans;
    for (const OwnedAddress& owned : OwnedAddresses()) scans.emplace_back().address = owned.address;
    const std::string cache_id = WalletCacheId();

    lock.unlock();
    for (PlainScan& scan : scans) scan.ok = ScanPlainOutputs(scan.address, scan.utxos);
    lock.lock();
    if (!LoadWallet() || WalletCacheId() != cache_id) return;
    for (PlainScan& scan : scans) {
        if (!scan.ok) continue;
        DropSpent(scan.utxos);
        if (scan.utxos.empty()) continue;
        StoreUtxoList(scan.address, scan.utxos, /*ok=*/true, /*merge=*/true);
        PrunePending(scan.address, scan.utxos);
    }
}

}  // namespace brickfall
