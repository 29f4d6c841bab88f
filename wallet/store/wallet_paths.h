// wallet_paths.h - where the files of a wallet lie.
#pragma once

#include <string>

namespace brickfall {

std::string WalletFilePath();  // of the active wallet id

// The name of the wallet in the caches' file names: its id, else an address of its; "wallet" when there is
// neither. wallet_mutex is held by the caller.
std::string WalletCacheId();

}  // namespace brickfall
