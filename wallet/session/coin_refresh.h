// coin_refresh.h - brings what is known of the wallet's addresses up to date. wallet_mutex is held by the
// caller.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "wallet/chain/address_refresh.h"
#include "wallet/keys/wallet_keys.h"

namespace brickfall {

// Makes the list of OwnedAddresses whole, however long it is. The caller's hold on wallet_mutex, which must
// be the only one of its thread, is released while addresses are derived. False when no wallet, or another
// one, stands there afterwards.
bool ListOwnedAddresses(WalletLock& lock);

void WalletAddresses(std::vector<std::string>& list);
void ApplyRefresh(const std::vector<AddressRefresh>& records);  // takes wallet_mutex

// Both release the caller's hold around their network work and take it back; it must be held exactly once.
// EnsureUtxoCache fetches what is not known of any address, and scans for ordinals where coins are listed
// that no good scan covers. It is true also when a service did not answer.
bool EnsureUtxoCache(WalletLock& lock, std::string& error);
void RescanPlainOutputs(WalletLock& lock);

}  // namespace brickfall
