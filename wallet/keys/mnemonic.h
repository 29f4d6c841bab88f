// mnemonic.h - checks the twelve words (BIP39) and makes their seed. wallet_mutex is held by the caller.
#pragma once

namespace brickfall {

bool ValidateMnemonic();  // of WalletKeys.mnemonic: twelve English words with a good checksum

// Fills WalletKeys.seed from its words, and says so in seed_cached.
bool ComputeSeed();

}  // namespace brickfall
