// wallet_session.h - which wallet is open: loads it, follows what Pouch changes in it, and lets go of it.
#pragma once

#include <string>

namespace brickfall {

// Caller holds wallet_mutex for these three.
bool LoadWallet();  // true when a wallet is in memory; cheap after the first success
void ReloadWalletHints();
void ClearWalletState();  // wipes every secret and empties every per-wallet cache

// Of the wallet shown, else from the file without loading it; `paymail` with its domain, or empty. Never
// waits for wallet_mutex.
bool WalletSummary(std::string& address, std::string& paymail, bool& is_hd);

std::string CurrentAddress();  // takes wallet_mutex
bool IsConnected();  // a bound hd wallet whose file loads; takes wallet_mutex only where none is loaded

}  // namespace brickfall
