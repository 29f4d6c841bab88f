#include "wallet/session/encryption_key.h"

#include "wallet/keys/key_derivation.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/session/wallet_session.h"

namespace brickfall {

bool DeriveEncryptionKey(std::string& public_hex, SecretString& private_hex, std::string& error) {
    public_hex.clear();
    WipeString(private_hex);
    error.clear();
    const WalletLock lock(wallet_mutex);
    if (!LoadWallet() || !wallet_keys.is_hd) {
        error = "Pouch HD wallet not connected";
        return false;
    }
    std::string address;
    if (wallet_keys.mnemonic.empty() || !DeriveAtPath(kEncryptionPath, private_hex, public_hex, address)) {
        error = "could not derive Pouch encryption key";
        return false;
    }
    return true;
}

}  // namespace brickfall
