#include "wallet/store/paymail_registry.h"

#include <algorithm>
#include <mutex>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/files.h"
#include "base/text.h"
#include "deployment/deployment.h"
#include "wallet/json/store_json.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/store/shared_store.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr char kRegistryFile[] = "/orvane_paymail.json";
constexpr char kOldFolder[] =
    "userinfo";  // below the working folder; older installations kept the file there
constexpr char kWriteFailedText[] = "could not write paymail registry";

std::mutex& paymail_mutex = *new std::mutex;
json& paymail_doc =
    *new json(json::object());  // guarded by paymail_mutex; no cache: read anew by each operation

// Held from the reading of the file to its writing, so that no other process changes it in between.
struct RegistryLock {
    const StoreLock store;
    const std::lock_guard<std::mutex> document{paymail_mutex};
};

// Caller holds RegistryLock, as for the load.
bool SavePaymailRegistry() { return WriteStoreFile(StoreRoot() + kRegistryFile, StoreDump(paymail_doc)); }

// Anything but an object reads as an empty one.
FileState ReadRegistryFile(const std::string& path) {
    StoreFile file = ReadStoreFile(path);
    paymail_doc = file.document.is_object() ? std::move(file.document) : json::object();
    return file.state;
}

// False when the file is there and cannot be read: what it holds is not known, so nothing may replace it.
bool LoadPaymailRegistry() {
    const FileState state = ReadRegistryFile(StoreRoot() + kRegistryFile);
    if (state != FileState::kMissing) return state == FileState::kRead;
    const FileState old_state = ReadRegistryFile(std::string(kOldFolder) + kRegistryFile);
    if (old_state == FileState::kRead) SavePaymailRegistry();
    return old_state != FileState::kUnreadable;
}

json& ObjectAt(json& parent, const char* key) {
    json& child = parent[key];
    if (!child.is_object()) child = json::object();
    return child;
}

const json* FindObject(const json& parent, const char* key) {
    const auto child = parent.find(key);
    return child != parent.end() && child->is_object() ? &*child : nullptr;
}

bool OwnedBy(const json& entry, const std::string& folded_key) {
    return entry.is_object() && Lower(StoreText(entry, "pubkey")) == folded_key;
}

// The text of the existing entry, else the first one among the identity's entries.
std::string CarriedText(const json& names, const json* existing, const std::string& folded_key,
                        const char* key, const std::string& before_the_others) {
    std::string text = existing != nullptr ? StoreText(*existing, key) : std::string();
    if (text.empty()) text = before_the_others;
    if (!text.empty()) return text;
    for (const json& entry : names) {
        if (OwnedBy(entry, folded_key)) text = StoreText(entry, key);
        if (!text.empty()) break;
    }
    return text;
}

std::string RefuseNewLabel(const json& names, const std::string& folded_key) {
    const int limit = QuotaForRole(StoreText(paymail_doc, "host_role"));
    if (limit < 0) return {};
    const auto held = std::count_if(names.begin(), names.end(),
                                    [&](const json& entry) { return OwnedBy(entry, folded_key); });
    if (held < limit) return {};
    return "paymail quota reached (" + std::to_string(limit) + " free labels per identity)";
}

}  // namespace

std::string SanitizePaymailName(std::string_view text) {
    text = StripBack(StripFront(text, "@$ "), " \r\n");
    std::string name = Lower(text.substr(0, text.find('@')));
    std::erase_if(name, [](char c) { return !IsAsciiLetterOrDigit(c) && c != '_' && c != '-' && c != '.'; });
    return name;
}

int QuotaForRole(std::string_view role) {
    if (role == "architect") return -1;
    return role == "dev" ? 20 : 10;
}

bool LooksLikeAddress(std::string_view text) {
    return text.size() >= 26 && text.size() <= 35 && text.front() == '1' &&
           text.find('_') == std::string_view::npos;
}

std::string FindNameForPubkey(std::string_view public_hex) {
    const std::string key = Lower(public_hex);
    if (key.empty()) return {};
    const RegistryLock lock;
    if (!LoadPaymailRegistry()) return {};
    const json* names = FindObject(paymail_doc, "names");
    if (names == nullptr) return {};

    const std::string self = SanitizePaymailName(StoreText(paymail_doc, "self"));
    if (!self.empty() && names->contains(self) && OwnedBy((*names)[self], key)) return self;

    std::string smallest;
    for (const auto& [label, entry] : names->items()) {
        if (!OwnedBy(entry, key)) continue;
        std::string name = SanitizePaymailName(label);
        if (!name.empty() && (smallest.empty() || name < smallest)) smallest = std::move(name);
    }
    return smallest;
}

std::string RegisterPaymail(std::string_view name, std::string_view public_hex, std::string_view address) {
    const std::string label = SanitizePaymailName(name);
    if (label.empty()) return "need a paymail name (letters, numbers, _ - .)";
    if (public_hex.empty()) return "no Pouch identity pubkey";
    const std::string key = Lower(public_hex);

    const RegistryLock lock;
    if (!LoadPaymailRegistry()) return kWriteFailedText;
    json& names = ObjectAt(paymail_doc, "names");
    const json* existing = FindObject(names, label.c_str());
    if (existing != nullptr) {
        const std::string owner = Lower(StoreText(*existing, "pubkey"));
        if (!owner.empty() && owner != key) return label + "@" + kPaymailDomain + " is already taken";
    } else if (std::string refusal = RefuseNewLabel(names, key); !refusal.empty()) {
        return refusal;
    }

    const json* avatars = FindObject(paymail_doc, "avatars");
    const std::string own_avatar = avatars != nullptr ? StoreText(*avatars, key.c_str()) : std::string();
    const std::string ord = CarriedText(names, existing, key, "ord", "");
    const std::string avatar = CarriedText(names, existing, key, "avatar", own_avatar);

    // The entry is made anew: an ordinals address comes back with the next load of the wallet.
    json entry = {{"pubkey", public_hex}};
    if (!address.empty()) entry["address"] = address;
    if (!ord.empty()) entry["ord"] = ord;
    if (!avatar.empty()) entry["avatar"] = avatar;
    names[label] = std::move(entry);
    paymail_doc["self"] = label;
    return SavePaymailRegistry() ? std::string() : kWriteFailedText;
}

void SetHostRole(std::string_view role) {
    constexpr std::string_view kKnownRoles[] = {"dev", "agent", "operator", "architect"};
    std::string new_role = Lower(role);
    if (std::ranges::find(kKnownRoles, new_role) == std::end(kKnownRoles)) new_role.clear();

    const RegistryLock lock;
    if (!LoadPaymailRegistry() || StoreText(paymail_doc, "host_role") == new_role) return;
    if (new_role.empty()) {
        paymail_doc.erase("host_role");
    } else {
        paymail_doc["host_role"] = new_role;
    }
    SavePaymailRegistry();
}

void SetOrdAddress(std::string_view ord_address) {
    const std::string key = Lower(wallet_keys.identity_pub);
    if (key.empty() || !LooksLikeAddress(ord_address)) return;
    const RegistryLock lock;
    if (!LoadPaymailRegistry() || FindObject(paymail_doc, "names") == nullptr) return;
    bool changed = false;
    for (json& entry : paymail_doc["names"]) {
        if (!OwnedBy(entry, key) || StoreText(entry, "ordAddress") == ord_address) continue;
        entry["ordAddress"] = ord_address;
        if (LooksLikeAddress(StoreText(entry, "ord"))) entry.erase("ord");
        changed = true;
    }
    if (changed) SavePaymailRegistry();
}

std::string SyncAvatar() {
    const std::string key = Lower(wallet_keys.identity_pub);
    const std::string& avatar = wallet_keys.ord_avatar;
    if (key.empty()) return "no identity pubkey";
    const RegistryLock lock;
    if (!LoadPaymailRegistry()) return kWriteFailedText;
    const auto put = [&avatar](json& object, const std::string& at) {
        if (avatar.empty()) {
            object.erase(at);
        } else {
            object[at] = avatar;
        }
    };
    json& names = ObjectAt(paymail_doc, "names");
    put(ObjectAt(paymail_doc, "avatars"), key);
    for (json& entry : names) {
        if (OwnedBy(entry, key)) put(entry, "avatar");
    }
    return SavePaymailRegistry() ? std::string() : kWriteFailedText;
}

}  // namespace brickfall
