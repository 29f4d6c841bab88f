#include "wallet/store/shared_store.h"

#include <filesystem>
#include <mutex>
#include <system_error>
#include <utility>

#include "base/clock.h"
#include "base/foreign_json.h"
#include "wallet/json/store_json.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr char kMigratedName[] = "Wallet 1";

std::recursive_mutex& store_mutex = *new std::recursive_mutex;
int store_lock_depth = 0;                     // guarded by store_mutex
ByteLock& store_lock_handle = *new ByteLock;  // guarded by store_mutex

std::string RegistryPath() { return StoreRoot() + "/wallets.json"; }

bool IsStoreId(std::string_view id) {
    return id.size() > 1 && id.front() == 'w' && id.find_first_not_of("0123456789", 1) == id.npos;
}

// Whether the entry is one that a migration has listed, and whose file it could not move any more.
bool IsListedOnly(const json& entry, const std::string& wallet_file) {
    std::error_code error;
    return IsStoreId(StoreText(entry, "id")) && StoreText(entry, "name") == kMigratedName &&
           std::filesystem::symlink_status(wallet_file, error).type() ==
               std::filesystem::file_type::not_found;
}

}  // namespace

std::string StoreRoot() {
    std::string root = UserDataFolder() + "/Orvane";
    MakeFolders(root);
    return root;
}

StoreLock::StoreLock() {
    std::unique_lock lock(store_mutex);
    if (store_lock_depth == 0) store_lock_handle.Acquire(StoreRoot() + "/wallets.lock");
    ++store_lock_depth;
    lock.release();  // not before here: without memory nothing stays locked
}

StoreLock::~StoreLock() {
    if (--store_lock_depth == 0) store_lock_handle.Release();
    store_mutex.unlock();
}

std::string NewStoreId() { return "w" + std::to_string(UnixMillis()); }

FileState ReadStoreText(const std::string& path, SecretString& text) {
    const FileState state = ReadSecretFile(path, text);
    return state == FileState::kRead && !IsWithinLimits(text, kStoreLimits) ? FileState::kUnreadable : state;
}

StoreFile ReadStoreFile(const std::string& path) {
    StoreFile file;
    SecretString text;
    file.state = ReadStoreText(path, text);
    if (file.state != FileState::kRead) return file;
    json document = json::parse(text, nullptr, /*allow_exceptions=*/false);
    if (!document.is_discarded()) file.document = std::move(document);
    return file;
}

json ReadStoreJson(const std::string& path) { return ReadStoreFile(path).document; }

bool WriteStoreFile(const std::string& path, std::string_view text) {
    SecretString present;
    const FileState state = ReadStoreText(path, present);
    if (state == FileState::kUnreadable) return false;
    return (state == FileState::kRead && present == text) || ReplaceFile(path, text);
}

StoreFile ReadRegistry() {
    StoreFile registry = ReadStoreFile(RegistryPath());
    json& document = registry.document;
    if (!document.is_object()) document = json::object();
    if (json& wallets = document["wallets"]; !wallets.is_array()) wallets = json::array();
    return registry;
}

bool WriteRegistry(const json& document) {
    return WriteStoreFile(RegistryPath(), StoreDump(document) + "\n");
}

void MigrateSingleWallet() {
    const StoreLock lock;
    const std::string old_file = StoreRoot() + "/orvane_pouch.json";
    if (!FileExists(old_file)) return;
    StoreFile registry = ReadRegistry();
    if (registry.state == FileState::kUnreadable) return;
    json& wallets = registry.document["wallets"];
    const bool is_new = wallets.empty();
    const std::string id = is_new ? NewStoreId() : StoreText(wallets.front(), "id");
    const std::string folder = StoreRoot() + "/wallets/" + id;
    const std::string wallet_file = folder + "/wallet.json";
    if (is_new) {
        // Listed before it moves: a start that ends in between leaves the next one the place to move it to.
        wallets.push_back({{"id", id}, {"name", kMigratedName}});
        registry.document["active"] = id;
        if (!WriteRegistry(registry.document)) return;
    } else if (!IsListedOnly(wallets.front(), wallet_file)) {
        return;
    }
    MakeFolders(folder);
    MoveFile(old_file, wallet_file);
}

std::vector<WalletInfo> ListWallets() {
    const StoreLock lock;
    const json registry = ReadRegistry().document;
    std::vector<WalletInfo> wallets;
    for (const json& entry : registry.at("wallets")) {
        WalletInfo info{StoreText(entry, "id"), StoreText(entry, "name")};
        if (info.id.empty()) continue;
        if (info.name.empty()) info.name = info.id;
        wallets.push_back(std::move(info));
    }
    return wallets;
}

std::string WalletDisplayName(std::string_view wallet_id) {
    for (WalletInfo& info : ListWallets()) {
        if (info.id == wallet_id) return std::move(info.name);
    }
    return std::string(wallet_id);
}

void SetWalletName(std::string_view wallet_id, std::string_view name) {
    if (wallet_id.empty() || name.empty()) return;
    const StoreLock lock;
    StoreFile registry = ReadRegistry();
    if (registry.state == FileState::kUnreadable) return;
    for (json& entry : registry.document["wallets"]) {
        if (entry.is_object() && StoreText(entry, "id") == wallet_id) entry["name"] = name;
    }
    WriteRegistry(registry.document);
}

std::string CannotReadText(std::string_view path) {
    return "cannot read " + std::string(path.substr(StoreRoot().size() + 1)) + "; nothing was spent.";
}

}  // namespace brickfall
