#include "wallet/session/wallet_session.h"

#include <cstdint>
#include <new>
#include <utility>

#include "base/secret.h"
#include "deployment/deployment.h"
#include "wallet/coins/balance_cache.h"
#include "wallet/coins/ordinal_guard.h"
#include "wallet/coins/own_transactions.h"
#include "wallet/coins/spent_set.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/events/wallet_events.h"
#include "wallet/keys/key_derivation.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/store/app_binds.h"
#include "wallet/store/paymail_registry.h"
#include "wallet/store/wallet_file.h"

namespace brickfall {
namespace {

// The name's entry in the registry tells where its ordinals go.
void ShareOrdAddress() {
    if (const std::string ord_address = DeriveOrdAddress(); !ord_address.empty()) SetOrdAddress(ord_address);
}

std::string DisplayPaymail(const std::string& name) {
    return name.empty() ? std::string() : name + "@" + kPaymailDomain;
}

}  // namespace

bool LoadWallet() {
    if (!wallet_keys.priv.empty() && !wallet_keys.address.empty()) return true;
    const std::string told = std::exchange(wallet_load_error, {});
    if (WalletId().empty()) return false;
    ForbidDumps();
    try {
        if (ReadWallet()) {
            ShareOrdAddress();
            LoadSpentSet();
            ShowWallet();
            return true;
        }
    } catch (const std::bad_alloc&) {
        ResetWalletKeys();  // half a wallet, or one without its spent set, would pass for a loaded one
        PermitDumps();
        throw;
    }
    PermitDumps();
    // Every click tries to load it; the player is told once.
    if (!wallet_load_error.empty() && wallet_load_error != told) WalletLog(wallet_load_error);
    return false;
}

void ReloadWalletHints() {
    if (wallet_keys.priv.empty() || wallet_keys.address.empty()) return;
    const uint32_t former_index = wallet_keys.recv[1];
    if (!ReadWalletHints()) return;
    if (wallet_keys.is_hd && wallet_keys.recv[1] != former_index && RefreshDerivedKeys()) ShareOrdAddress();
    ShowWallet();
}

void ClearWalletState() {
    ResetWalletKeys();
    PermitDumps();
    ClearUtxoState();
    ClearGuardState();
    ClearBalanceMemory();
    last_recorded_txid.clear();
}

bool WalletSummary(std::string& address, std::string& paymail, bool& is_hd) {
    const ShownWallet shown = WalletShown();
    address = shown.address;
    paymail = DisplayPaymail(shown.name);
    is_hd = shown.is_hd;
    if (!address.empty()) return true;
    if (WalletId().empty()) return false;
    std::string name;
    if (!ReadWalletSummary(address, name, is_hd)) return false;
    paymail = DisplayPaymail(name);
    return true;
}

std::string CurrentAddress() {
    const WalletLock lock(wallet_mutex);
    return LoadWallet() ? wallet_keys.address : std::string();
}

bool IsConnected() {
    if (AppMode() && BoundWalletId().empty() && WalletId().empty()) return false;
    if (const ShownWallet shown = WalletShown(); shown.loaded) return shown.is_hd;
    const WalletLock lock(wallet_mutex);
    return LoadWallet() && wallet_keys.is_hd;
}

}  // namespace brickfall
