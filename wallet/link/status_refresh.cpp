#include "wallet/link/status_refresh.h"

#include <algorithm>
#include <new>
#include <string>
#include <vector>

#include "wallet/chain/address_refresh.h"
#include "wallet/coins/balance_cache.h"
#include "wallet/coins/ordinal_guard.h"
#include "wallet/coins/spendable.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/events/wallet_events.h"
#include "wallet/keys/key_derivation.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/link/paymail_host.h"
#include "wallet/link/paymail_sync.h"
#include "wallet/session/coin_refresh.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/wallet_paths.h"

namespace brickfall {

std::atomic<bool>& balance_busy = *new std::atomic<bool>(false);

namespace {

// The addresses whose outputs or ordinals must be read anew.
std::vector<AddressRefresh> StaleAddresses(const std::vector<std::string>& addresses, bool outage) {
    std::vector<AddressRefresh> records;
    for (const std::string& address : addresses) {
        if (IsCacheFresh(address) && (outage || HasFreshGuard(address))) continue;
        records.emplace_back().address = address;
    }
    return records;
}

bool AnyOutputsKnown(const std::vector<std::string>& addresses, const std::vector<AddressRefresh>& records) {
    return std::ranges::any_of(records, &AddressRefresh::ok) ||
           std::ranges::any_of(addresses, [](const std::string& address) {
               const UtxoCacheEntry* entry = FindCacheEntry(address);
               return entry != nullptr && entry->valid;
           });
}

}  // namespace

StatusResult StatusRefresh() {
    StatusResult result;
    WalletLock lock(wallet_mutex);
    if (!LoadWallet()) {
        EmitWalletEvent("status");
        EmitWalletEvent("paymail");
        return result;
    }
    SyncNameAndAvatar();
    const std::string cache_id = WalletCacheId();
    if (!ListOwnedAddresses(lock) || WalletCacheId() != cache_id) return result;
    std::vector<std::string> addresses;
    WalletAddresses(addresses);
    const bool outage = OrdinalsOutageRunning();
    std::vector<AddressRefresh> records = StaleAddresses(addresses, outage);
    const ClaimFields claim = {wallet_keys.paymail, wallet_keys.identity_pub, wallet_keys.address,
                               wallet_keys.ord_avatar, DeriveOrdAddress()};
    lock.unlock();
    FetchRefreshRecords(records, outage ? OrdinalScans::kNone : OrdinalScans::kAll);
    lock.lock();
    // Another wallet was connected, or this one let go, while the answers came in.
    if (WalletCacheId() != cache_id) return result;

    ApplyRefresh(records);
    result.chain_ok = AnyOutputsKnown(addresses, records);
    result.balance = ReadBalance();
    result.coins = SpendableValues();
    const std::string shown =
        result.chain_ok ? std::to_string(std::max<int64_t>(result.balance, 0)) : std::string("-");
    EmitWalletEvent("status", {wallet_keys.address, shown, wallet_keys.is_hd ? "hd" : "legacy"});
    EmitPaymailEvent();
    lock.unlock();

    ClaimIfChanged(claim.alias, claim.public_hex, claim.address, claim.avatar, claim.ord_address);
    RefreshQuotaRole();
    return result;
}

void BalanceWorker(const std::function<void(const StatusResult&)>& post) {
    StatusResult result;
    try {
        result = StatusRefresh();
    } catch (const std::bad_alloc&) {
        // As when no service answers: the next refresh tries again.
    }
    if (post) post(result);
    balance_busy.store(false);
}

}  // namespace brickfall
