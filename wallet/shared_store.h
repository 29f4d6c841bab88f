// shared_store.h - the folder of files that the cabinet shares with Pouch, the list of wallets in it, and the
// lock that orders the writers of that list between threads and between processes. Nothing here reports an
// error.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace brickfall {

struct WalletInfo {
    std::string id;
    std::string name;
};

// The folder, created with its parents when it is missing; no slash at the end.
std::string StoreRoot();

// Held from construction to destruction; may be taken again by the same thread. A file lock that cannot be
// had leaves the lock of the process alone.
class StoreLock {
  public:
    StoreLock();
    ~StoreLock();
    StoreLock(const StoreLock&) = delete;
    StoreLock& operator=(const StoreLock&) = delete;
};

std::string NewStoreId();  // "w" and the milliseconds since 1970

// With StoreLock held.
nlohmann::json ReadRegistry();  // an object with an array `wallets`, whatever the file holds
bool WriteRegistry(const nlohmann::json& document);

// These take StoreLock themselves.
void MigrateSingleWallet();
std::vector<WalletInfo> ListWallets();
std::string WalletDisplayName(std::string_view wallet_id);
void SetWalletName(std::string_view wallet_id, std::string_view name);

// A JSON file of the store, read leniently: null when it is missing, unreadable or does not parse.
nlohmann::json ReadStoreJson(const std::string& path);

}  // namespace brickfall
