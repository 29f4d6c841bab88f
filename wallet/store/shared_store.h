// shared_store.h - the folder of files that the cabinet shares with Pouch, the list of wallets in it, and the
// lock that orders the writers of that list between threads and between processes. Nothing here reports an
// error.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "base/files.h"
#include "base/secret.h"

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

// A JSON file of the store, read leniently: `document` is null when the file is missing, cannot be read or
// does not parse. One that is longer, nests deeper or holds more entries than any file of the store does
// counts as one that cannot be read.
struct StoreFile {
    FileState state = FileState::kMissing;
    nlohmann::json document;
};
StoreFile ReadStoreFile(const std::string& path);
nlohmann::json ReadStoreJson(const std::string& path);  // the document alone

// The text of such a file, as it stands; it may hold secrets.
FileState ReadStoreText(const std::string& path, SecretString& text);

// Replaces a file of the store whole (ReplaceFile), unless it holds just this text already. False, and the
// file is as it was, when it is there and cannot be read, or cannot be written.
bool WriteStoreFile(const std::string& path, std::string_view text);

// For the player, who has to mend it: the file by its place in the store.
std::string CannotReadText(std::string_view path);

// With StoreLock held. The document read is an object with an array `wallets`, whatever the file holds; one
// that could not be read must not be changed and written back.
StoreFile ReadRegistry();
bool WriteRegistry(const nlohmann::json& document);

// These take StoreLock themselves.
void MigrateSingleWallet();
std::vector<WalletInfo> ListWallets();
std::string WalletDisplayName(std::string_view wallet_id);
void SetWalletName(std::string_view wallet_id, std::string_view name);

}  // namespace brickfall
