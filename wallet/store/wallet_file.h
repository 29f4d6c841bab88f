// wallet_file.h - the wallet's file: reads it into WalletKeys and writes it. The words and the key pass from
// one to the other here, and nowhere else. wallet_mutex is held by the caller for all but ReadWalletSummary
// and NormalizeContactDest.
#pragma once

#include <string>
#include <string_view>

namespace brickfall {

// Why the last load failed, where the player can be told more than that it did; else empty. Guarded by
// wallet_mutex.
extern std::string& wallet_load_error;

// The wallet anew, its keys in place. False, and no wallet in memory, when the file is missing or wrong.
bool ReadWallet();

// What Pouch may have changed: counters, name and avatar. False when there is no file to read.
bool ReadWalletHints();

// The address, and the local part of the name where there is one. False when the file holds no wallet.
bool ReadWalletSummary(std::string& address, std::string& name, bool& is_hd);

bool SaveWallet();  // hd only; false when the file stays as it was
std::string NormalizeContactDest(std::string_view text);

}  // namespace brickfall
