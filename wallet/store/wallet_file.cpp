#include "wallet/store/wallet_file.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>
#include <vector>

#include "base/files.h"
#include "base/secret.h"
#include "base/text.h"
#include "deployment/deployment.h"
#include "wallet/json/json_numbers.h"
#include "wallet/json/secret_json.h"
#include "wallet/json/store_json.h"
#include "wallet/keys/bip32.h"
#include "wallet/keys/key_derivation.h"
#include "wallet/keys/mnemonic.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/protocol/address.h"
#include "wallet/store/app_binds.h"
#include "wallet/store/shared_store.h"
#include "wallet/store/wallet_paths.h"

namespace brickfall {

std::string& wallet_load_error = *new std::string;

namespace {

using nlohmann::json;

constexpr int kFormatVersion = 2;
constexpr std::size_t kMaxNoteBytes = 80;

constexpr char kTooManyAddressesText[] =
    "The wallet has more than 100,000 receive addresses. This cabinet cannot open it.";
constexpr std::size_t kPrivateHexLength = 64;
constexpr std::size_t kMinAddressLength = 26;
constexpr std::string_view kCutFromEnds = " \t\r\n";

struct WalletFile {
    json document;
    SecretString mnemonic;
    SecretString priv;

    bool IsHd() const { return HasText("mnemonic"); }
    bool HasText(const char* key) const {
        const json* value = FindJsonKey(document, key);
        return value != nullptr && value->is_string();
    }
};

// A text that does not parse is read, and gives a document of no type.
FileState ReadWalletFile(WalletFile& file) {
    SecretString text;
    const FileState state = ReadStoreText(WalletFilePath(), text);
    if (state != FileState::kRead) return state;
    SecretMember secrets[] = {{"mnemonic", {}}, {"priv", {}}};
    file.document = ParseWithSecrets(text, secrets);
    file.mnemonic = std::move(secrets[0].value);
    file.priv = std::move(secrets[1].value);
    return state;
}

std::optional<WalletFile> ParsedWalletFile() {
    WalletFile file;
    if (ReadWalletFile(file) != FileState::kRead || file.document.is_discarded()) return std::nullopt;
    return file;
}

// Whether the wallet in memory may be written over the file: one that cannot be read, and one that holds the
// words or the key of another wallet, are kept.
bool MayReplaceWalletFile() {
    WalletFile present;
    if (ReadWalletFile(present) == FileState::kUnreadable) return false;
    const bool holds_secret = present.IsHd() || present.HasText("priv");
    return !holds_secret || present.mnemonic == wallet_keys.mnemonic;
}

// The two below leave `value` alone when the key is missing, and are false when it holds another type.
bool ReadBool(const json& object, const char* key, bool& value) {
    const json* found = FindJsonKey(object, key);
    if (found == nullptr) return true;
    if (!found->is_boolean()) return false;
    value = found->get<bool>();
    return true;
}

bool ReadInt32(const json& object, const char* key, int32_t& value) {
    const json* found = FindJsonKey(object, key);
    if (found == nullptr) return true;
    if (!found->is_number()) return false;
    value = JsonClampedInt32(*found);
    return true;
}

bool ReadOrdOwned(const json& element, OrdOwnedEntry& entry) {
    return ReadJsonText(element, "origin", entry.origin) && ReadJsonText(element, "txid", entry.txid) &&
           ReadInt32(element, "vout", entry.vout) && ReadJsonText(element, "type", entry.type) &&
           ReadJsonText(element, "address", entry.address) && ReadJsonText(element, "name", entry.name) &&
           ReadJsonText(element, "icon", entry.icon) && ReadBool(element, "hidden", entry.hidden) &&
           ReadBool(element, "created", entry.created);
}

std::string_view CutEnds(std::string_view text) {
    return StripBack(StripFront(text, kCutFromEnds), kCutFromEnds);
}

bool ReadContact(const json& element, ContactEntry& entry) {
    std::string dest;
    std::string note;
    if (!ReadJsonText(element, "dest", dest) || !ReadJsonText(element, "note", note)) return false;
    entry.dest = NormalizeContactDest(dest);
    entry.note = CutEnds(note).substr(0, kMaxNoteBytes);
    return true;
}

// The objects of an array, each read by `read` and kept when its `name` is not empty. A value that is no
// array counts as an empty one.
template <typename Entry>
bool ReadList(const json& document, const char* key, bool (*read)(const json&, Entry&),
              std::string Entry::*name, std::vector<Entry>& list) {
    const json* array = FindJsonKey(document, key);
    if (array == nullptr || !array->is_array()) return true;
    for (const json& element : *array) {
        if (!element.is_object()) continue;
        Entry entry;
        if (!read(element, entry)) return false;
        if (!(entry.*name).empty()) list.push_back(std::move(entry));
    }
    return true;
}

bool ReadLists(const json& document) {
    return ReadList(document, "ord_owned", ReadOrdOwned, &OrdOwnedEntry::origin, wallet_keys.ord_owned) &&
           ReadList(document, "contacts", ReadContact, &ContactEntry::dest, wallet_keys.contacts);
}

void ReadNames(const json& document) {
    ReadJsonText(document, "paymail", wallet_keys.paymail);
    ReadJsonText(document, "ord_avatar", wallet_keys.ord_avatar);
}

// An index of an address; nothing for what no address can have.
std::optional<uint32_t> Counter(const json& value) {
    const std::optional<int64_t> number = JsonExactInt64(value);
    if (!number || *number < 0 || *number >= int64_t{kHardenedBit}) return std::nullopt;
    return static_cast<uint32_t>(*number);
}

void ReadCounters(const json& document) {
    const json* recv = FindJsonKey(document, "recv");
    if (recv == nullptr || !recv->is_array()) return;
    const std::size_t count = std::min(recv->size(), wallet_keys.recv.size());
    for (std::size_t account = 0; account < count; ++account) {
        if (const auto counter = Counter((*recv)[account])) wallet_keys.recv[account] = *counter;
    }
}

void ReadShow(const json& document) {
    wallet_keys.show = wallet_keys.recv[1];
    const json* show = FindJsonKey(document, "show");
    if (show == nullptr) return;
    if (const auto counter = Counter(*show)) wallet_keys.show = std::min(*counter, wallet_keys.recv[1]);
}

bool LoadHd(WalletFile& file) {
    wallet_keys.mnemonic = std::move(file.mnemonic);
    if (!ValidateMnemonic()) return false;
    wallet_keys.is_hd = true;
    if (!ReadBool(file.document, "backup", wallet_keys.backup)) return false;
    ReadCounters(file.document);
    if (wallet_keys.recv[1] > kMaxReceiveIndex) {
        wallet_load_error = kTooManyAddressesText;
        return false;
    }
    ReadShow(file.document);
    ReadNames(file.document);
    return ReadLists(file.document) && RefreshDerivedKeys();
}

bool LoadLegacy(WalletFile& file) {
    const bool read = ReadJsonText(file.document, "pub", wallet_keys.pub) &&
                      ReadJsonText(file.document, "address", wallet_keys.address);
    if (!read || file.priv.size() != kPrivateHexLength) return false;
    wallet_keys.priv = std::move(file.priv);
    ReadNames(file.document);
    if (!ReadLists(file.document)) return false;
    if (wallet_keys.pub.empty() && !PublicKeyFromPrivate(wallet_keys.priv, wallet_keys.pub)) return false;
    if (wallet_keys.address.empty()) wallet_keys.address = AddressFromPublicKey(wallet_keys.pub);
    return !wallet_keys.address.empty();
}

void WriteText(json& object, const char* key, const std::string& text) {
    if (!text.empty()) object[key] = text;
}

json OrdOwnedJson(const OrdOwnedEntry& entry) {
    json object = {
        {"origin", entry.origin}, {"txid", entry.txid}, {"vout", entry.vout}, {"created", entry.created}};
    WriteText(object, "type", entry.type);
    WriteText(object, "address", entry.address);
    WriteText(object, "name", entry.name);
    WriteText(object, "icon", entry.icon);
    if (entry.hidden) object["hidden"] = true;
    return object;
}

json ContactJson(const ContactEntry& entry) {
    json object = {{"dest", entry.dest}};
    WriteText(object, "note", entry.note);
    return object;
}

// The document that is written, but for the words.
json WalletJson() {
    json document = {{"version", kFormatVersion},     {"mnemonic", ""},
                     {"backup", wallet_keys.backup},  {"recv", wallet_keys.recv},
                     {"show", wallet_keys.show},      {"identity", wallet_keys.identity_address},
                     {"address", wallet_keys.address}};
    WriteText(document, "paymail", wallet_keys.paymail);
    WriteText(document, "ord_avatar", wallet_keys.ord_avatar);
    for (const OrdOwnedEntry& entry : wallet_keys.ord_owned) {
        document["ord_owned"].push_back(OrdOwnedJson(entry));
    }
    for (const ContactEntry& entry : wallet_keys.contacts) document["contacts"].push_back(ContactJson(entry));
    return document;
}

}  // namespace

std::string NormalizeContactDest(std::string_view text) {
    const std::string_view dest = CutEnds(StripFront(CutEnds(text), "@$"));
    if (dest.size() >= kMinAddressLength && dest.front() == '1') return std::string(dest);
    std::string name = Lower(dest);
    const std::size_t at = name.find('@');
    if (at != std::string::npos && name.substr(at + 1) == kPaymailDomain) name.resize(at);
    return name;
}

bool ReadWallet() {
    std::optional<WalletFile> file = ParsedWalletFile();
    if (!file) return false;
    ResetWalletKeys();
    if (file->IsHd() ? LoadHd(*file) : LoadLegacy(*file)) return true;
    // Half a wallet would pass for a loaded one at the next call, and its words are of no use.
    ResetWalletKeys();
    return false;
}

bool ReadWalletHints() {
    const std::optional<WalletFile> file = ParsedWalletFile();
    if (!file || !file->document.is_object()) return false;
    const uint32_t former_index = wallet_keys.recv[1];
    ReadCounters(file->document);
    if (wallet_keys.recv[1] > kMaxReceiveIndex) wallet_keys.recv[1] = former_index;
    if (!file->HasText("ord_avatar")) wallet_keys.ord_avatar.clear();
    ReadNames(file->document);
    return true;
}

bool ReadWalletSummary(std::string& address, std::string& name, bool& is_hd) {
    const std::optional<WalletFile> file = ParsedWalletFile();
    if (!file || (!file->IsHd() && !file->HasText("priv"))) return false;
    if (!ReadJsonText(file->document, "address", address)) return false;
    ReadJsonText(file->document, "paymail", name);
    is_hd = file->IsHd();
    return true;
}

bool SaveWallet() {
    if (WalletId().empty() || !wallet_keys.is_hd) return false;
    const std::string path = WalletFilePath();
    MakeFolders(std::filesystem::path(path).parent_path().string());
    return MayReplaceWalletFile() &&
           ReplaceFile(path, InsertSecret(StoreDump(WalletJson()), "mnemonic", wallet_keys.mnemonic));
}

}  // namespace brickfall
