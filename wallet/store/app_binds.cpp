#include "wallet/store/app_binds.h"

#include <cstddef>
#include <mutex>
#include <nlohmann/json.hpp>

#include "base/files.h"
#include "wallet/json/store_json.h"
#include "wallet/store/shared_store.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr std::size_t kMaxBindName = 96;

struct BindingState {
    bool app_mode = false;  // the wallet core belongs to an app, not to Pouch
    std::string app_name;
    std::string instance;   // the folder of the executable
    std::string wallet_id;  // the active wallet id, empty when none
};

std::mutex& binding_mutex = *new std::mutex;  // a leaf: nothing is called under it
BindingState& binding = *new BindingState;    // guarded by binding_mutex

BindingState Binding() {
    const std::lock_guard lock(binding_mutex);
    return binding;
}

std::string BoundId(const StoreFile& bind) { return StoreText(bind.document, "wallet_id"); }

std::string OnlyWalletOfTheStore() {
    const json registry = ReadRegistry().document;
    const json& wallets = registry.at("wallets");
    return wallets.size() == 1 ? StoreText(wallets.front(), "id") : std::string();
}

}  // namespace

void BindAtStart(std::string_view instance, std::string_view app_name) {
    const StoreLock lock;
    {
        const std::lock_guard state_lock(binding_mutex);
        binding.app_mode = true;
        binding.app_name = app_name.empty() ? "App" : app_name;
        binding.instance = instance.empty() ? "." : instance;
    }
    MigrateSingleWallet();
    const StoreFile bind = ReadStoreFile(BindFilePath());
    SetWalletId(BoundId(bind));
    // A bind that is there and cannot be read may name any wallet: no other is taken in its place.
    if (WalletId().empty() && bind.state != FileState::kUnreadable) WriteBind(OnlyWalletOfTheStore());
}

std::string SanitizeBindName(std::string_view text) {
    std::string name;
    name.reserve(text.size());
    for (const char byte : text) {
        const bool upper = byte >= 'A' && byte <= 'Z';
        const bool kept = (byte >= 'a' && byte <= 'z') || (byte >= '0' && byte <= '9');
        name.push_back(upper ? static_cast<char>(byte - 'A' + 'a') : kept ? byte : '_');
    }
    // The end of a folder's path is the part that tells installations apart.
    if (name.size() > kMaxBindName) name.erase(0, name.size() - kMaxBindName);
    return name.empty() ? "default" : name;
}

std::string BindFilePath() {
    const std::string folder = StoreRoot() + "/binds";
    MakeFolders(folder);
    return folder + "/" + SanitizeBindName(AppInstance()) + ".json";
}

std::string BoundWalletId() { return AppMode() ? BoundId(ReadStoreFile(BindFilePath())) : WalletId(); }

bool WriteBind(std::string_view wallet_id) {
    if (!AppMode() || wallet_id.empty()) return true;
    const json document = {{"app", AppName()}, {"instance", AppInstance()}, {"wallet_id", wallet_id}};
    const bool is_written = WriteStoreFile(BindFilePath(), StoreDump(document));
    SetWalletId(wallet_id);  // last: without memory the caller never learns that it was not written
    return is_written;
}

void ClearBind() {
    RemoveFile(BindFilePath());
    SetWalletId("");
}

bool AppMode() { return Binding().app_mode; }

std::string AppName() { return Binding().app_name; }
std::string AppInstance() { return Binding().instance; }
std::string WalletId() { return Binding().wallet_id; }
void SetWalletId(std::string_view wallet_id) {
    const std::lock_guard lock(binding_mutex);
    binding.wallet_id = wallet_id;
}

void ResetBindingForTest() {
    const std::lock_guard lock(binding_mutex);
    binding = BindingState();
}

}  // namespace brickfall
