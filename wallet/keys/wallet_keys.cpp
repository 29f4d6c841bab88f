#include "wallet/keys/wallet_keys.h"

#include <utility>

namespace brickfall {

std::recursive_mutex& wallet_mutex = *new std::recursive_mutex;
WalletKeys& wallet_keys = MakeSecretObject<WalletKeys>();

namespace {

std::mutex& shown_mutex = *new std::mutex;     // a leaf
ShownWallet& shown_wallet = *new ShownWallet;  // guarded by shown_mutex

}  // namespace

void ShowWallet() {
    ShownWallet shown = {!wallet_keys.priv.empty() && !wallet_keys.address.empty(), wallet_keys.is_hd,
                         wallet_keys.address, wallet_keys.paymail};
    const std::lock_guard lock(shown_mutex);
    shown_wallet = std::move(shown);
}

ShownWallet WalletShown() {
    const std::lock_guard lock(shown_mutex);
    return shown_wallet;
}

}  // namespace brickfall
