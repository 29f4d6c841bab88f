#include "wallet/shared_store.h"

#include <mutex>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/clock.h"
#include "base/foreign_json.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr JsonLimits kStoreLimits = {.bytes = kMaxFileBytes, .values = 1'000'000};

std::recursive_mutex& store_mutex = *new std::recursive_mutex;
int store_lock_depth = 0;                     // guarded by store_mutex
ByteLock& store_lock_handle = *new ByteLock;  // guarded by store_mutex

std::string RegistryPath() { return StoreRoot() + "/wallets.json"; }

}  // namespace

std::string StoreRoot() {
    std::string root = UserDataFolder() + "/Orvane";
    MakeFolders(root);
    return root;
}

StoreLock::StoreLock() {
    store_mutex.lock();
    if (++store_lock_depth > 1) return;
    store_lock_handle.Acquire(StoreRoot() + "/wallets.lock");
}

StoreLock::~StoreLock() {
    if (--store_lock_depth == 0) store_lock_handle.Release();
    store_mutex.unlock();
}

std::string NewStoreId() { return "w" + std::to_string(UnixMillis()); }

StoreFile ReadStoreFile(const std::string& path) {
    StoreFile file;
    std::string text;
    file.state = ReadFile(path, text);
    if (file.state != FileState::kRead) return file;
    if (!IsWithinLimits(text, kStoreLimits)) {
        file.state = FileState::kUnreadable;
        return file;
    }
    json document = json::parse(text, nullptr, /*allow_exceptions=*/false);
    if (!document.is_discarded()) file.document = std::move(document);
    return file;
}

json ReadStoreJson(const std::string& path) { return ReadStoreFile(path).document; }

std::string StoreText(const json& object, const char* key) {
    if (!object.is_object()) return {};
    const auto entry = object.find(key);
    if (entry == object.end() || !entry->is_string()) return {};
    return entry->get<std::string>();
}

std::string StoreDump(const json& document) {
    return document.dump(2, ' ', false, json::error_handler_t::replace);
}

json ReadRegistry() {
    json document = ReadStoreJson(RegistryPath());
    if (!document.is_object()) document = json::object();
    if (json& wallets = document["wallets"]; !wallets.is_array()) wallets = json::array();
    return document;
}

bool WriteRegistry(const json& document) {
    const std::string path = RegistryPath();
    return ReplaceFile(path, path + ".tmp", StoreDump(document) + "\n");
}

void MigrateSingleWallet() {
    const StoreLock lock;
    const std::string old_file = StoreRoot() + "/orvane_pouch.json";
    if (!FileExists(old_file)) return;
    json registry = ReadRegistry();
    if (!registry["wallets"].empty()) return;
    const std::string id = NewStoreId();
    const std::string folder = StoreRoot() + "/wallets/" + id;
    MakeFolders(folder);
    MoveFile(old_file, folder + "/wallet.json");
    registry["wallets"].push_back({{"id", id}, {"name", "Wallet 1"}});
    registry["active"] = id;
    WriteRegistry(registry);
}

std::vector<WalletInfo> ListWallets() {
    const StoreLock lock;
    const json registry = ReadRegistry();
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
    json registry = ReadRegistry();
    for (json& entry : registry["wallets"]) {
        if (entry.is_object() && StoreText(entry, "id") == wallet_id) entry["name"] = name;
    }
    WriteRegistry(registry);
}

}  // namespace brickfall
