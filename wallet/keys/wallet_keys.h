// wallet_keys.h - the one wallet of the process: its state and its lock. wallet_mutex guards WalletKeys and
// every cache that hangs on it. It is recursive, since the operations that hold it call one another. Lock
// order: wallet_mutex, then the paymail registry's or the store's lock. The main thread takes it for what a
// click cannot do without, and never for what it shows.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "base/secret.h"
#include "wallet/keys/bip32.h"

namespace brickfall {

struct OrdOwnedEntry {
    std::string origin;
    std::string txid;
    int32_t vout = 0;
    std::string type;
    std::string address;
    std::string name;
    std::string icon;
    bool hidden = false;
    bool created = true;
};

struct ContactEntry {
    std::string dest;
    std::string note;
};

struct WalletKeys {
    bool is_hd = false;
    SecretString mnemonic;  // exactly as stored
    std::array<uint8_t, 64> seed{};
    bool seed_cached = false;
    ExtendedKey master;
    bool master_cached = false;
    SecretString priv;  // key of the current receive address
    std::string pub;
    std::string address;  // the current receive address
    std::string identity_pub;
    std::string identity_address;
    std::array<uint32_t, 6> recv{};  // entry a is the counter of account a'
    uint32_t show = 0;               // index of the current receive address, never above recv[1]
    bool backup = false;
    std::string paymail;  // local part, no "@"
    std::string ord_avatar;
    std::vector<OrdOwnedEntry> ord_owned;
    std::vector<ContactEntry> contacts;
};

using WalletLock = std::unique_lock<std::recursive_mutex>;

extern std::recursive_mutex& wallet_mutex;
extern WalletKeys& wallet_keys;  // guarded by wallet_mutex

// The highest receive index that a wallet is loaded with. Each address below it takes some 0.2 ms of
// derivation and two requests a refresh; no player comes near it.
inline constexpr uint32_t kMaxReceiveIndex = 100'000;

// What a window shows of the wallet in memory: a copy that stands under a leaf lock of its own, so that
// nobody who only shows it waits for a payment, which holds wallet_mutex for as long as services take.
struct ShownWallet {
    bool loaded = false;
    bool is_hd = false;
    std::string address;
    std::string name;  // the local part of the paymail, or empty
};
ShownWallet WalletShown();
void ShowWallet();  // takes the copy; with wallet_mutex held, wherever one of its fields may have changed

}  // namespace brickfall
