#include "wallet/session/shown_balance.h"

#include <mutex>
#include <string>

#include "wallet/coins/balance_cache.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/session/wallet_session.h"

namespace brickfall {

int64_t ReadShownBalance() {
    const WalletLock lock(wallet_mutex, std::try_to_lock);
    if (!lock.owns_lock()) return shown_balance;
    int64_t balance = -1;
    if (LoadWallet()) {
        ReloadWalletHints();
        balance = ReadBalance();
        if (balance >= 0) return balance;
        balance = LastBalance() >= 0 ? LastBalance() : ReadFaceBalance(wallet_keys.address);
    }
    shown_balance = balance >= 0 ? balance : CachedBalance();
    return shown_balance;
}

int64_t CachedBalance() {
    std::string address, paymail;
    bool is_hd = false;
    if (!WalletSummary(address, paymail, is_hd) || address.empty()) return -1;
    const WalletLock lock(wallet_mutex);
    if (LastBalance() >= 0 && wallet_keys.address == address) return LastBalance();
    return ReadFaceBalance(address);
}

}  // namespace brickfall
