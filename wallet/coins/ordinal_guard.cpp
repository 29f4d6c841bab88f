#include "wallet/coins/ordinal_guard.h"

#include <algorithm>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "base/clock.h"
#include "base/files.h"
#include "base/text.h"
#include "deployment/deployment.h"
#include "net/http_client.h"
#include "net/url_text.h"
#include "wallet/json/json_numbers.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/payment/broadcast.h"
#include "wallet/store/app_binds.h"
#include "wallet/store/shared_store.h"

namespace brickfall {
namespace {

using nlohmann::json;

struct OrdinalGuardEntry {
    bool ok = false;         // the scan answered
    int64_t scanned_at = 0;  // monotonic nanoseconds
    bool covers = false;     // a good scan has seen what the address lists
};

// By address. Guarded by wallet_mutex, as are the values below.
std::unordered_map<std::string, OrdinalGuardEntry>& ordinal_guard =
    *new std::unordered_map<std::string, OrdinalGuardEntry>;
// Outpoint keys, in both byte orders, of what a scan has found to be an ordinal or a token.
std::unordered_set<std::string>& named_ordinals = *new std::unordered_set<std::string>;
std::optional<int64_t>& scan_failed_at = *new std::optional<int64_t>;  // monotonic nanoseconds
bool ordinals_outage = false;
int64_t ordinals_outage_at = 0;

constexpr int kOriginScanTimeoutSeconds = 10;
constexpr int kTokenScanTimeoutSeconds = 12;
constexpr int kRecoverTimeoutSeconds = 25;
constexpr std::size_t kMaxReserveName = 64;

// The members of a listing's element that are read.
constexpr std::string_view kGuardMembers[] = {"origin", "outpoint", "spend", "txid", "vout"};
constexpr ListShape kGuardList = {.root_is_list = true, .members = kGuardMembers};

// Hands the elements of an address's listing below `folder` to `take`. False when it cannot be read as one.
bool ReadGuardListing(const char* folder, const std::string& address, int timeout_seconds,
                      const std::function<bool(const json&)>& take) {
    const auto url = UrlWithName(std::string(kOrdinalsApiBaseUrl) + folder, address, "/unspent");
    std::string error;
    return url && HttpGetAndRead(*url, error, timeout_seconds, kListAnswer.bytes, [&](std::string_view body) {
               return ForEachElement(body, kGuardList, kListAnswer, take);
           });
}

// Reads the optional fields of a foreign object, and remembers whether one had the wrong JSON type.
struct FieldReader {
    const json& object;
    bool wrong_type = false;

    std::string Text(const char* key) {
        const json* value = FindJsonKey(object, key);
        if (value == nullptr) return {};
        if (value->is_string()) return value->get<std::string>();
        wrong_type = true;
        return {};
    }

    int64_t Integer(const char* key, int64_t missing) {
        const json* value = FindJsonKey(object, key);
        if (value == nullptr) return missing;
        if (value->is_number()) return JsonClampedInt64(*value);
        wrong_type = true;
        return missing;
    }

    std::optional<uint32_t> Index(const char* key) {
        const json* value = FindJsonKey(object, key);
        if (value == nullptr) return 0;
        wrong_type = wrong_type || !value->is_number();
        return JsonIndex(*value);
    }
};

// Adds the outpoint of a listing's element. False when a field has the wrong JSON type.
bool AddOutpointOf(FieldReader& fields, std::set<std::string>& keys) {
    const std::string txid = fields.Text("txid");
    const std::optional<uint32_t> vout = fields.Index("vout");
    if (fields.wrong_type) return false;
    if (IsTxidText(txid) && vout) keys.insert(OutpointKey(txid, *vout));
    return true;
}

// What a listing that fails in its middle has told until then is held back as well.
void AddTokens(const std::string& address, std::set<std::string>& keys) {
    ReadGuardListing("/bsv20/", address, kTokenScanTimeoutSeconds, [&keys](const json& element) {
        if (!element.is_object()) return true;
        FieldReader fields{element};
        const bool unspent = fields.Text("spend").empty();
        return !fields.wrong_type && (!unspent || AddOutpointOf(fields, keys));
    });
}

bool IsYoung(int64_t since) { return MonotonicNs() - since < kGuardFreshNs; }

const OrdinalGuardEntry* FreshGuard(std::string_view address) {
    const auto place = ordinal_guard.find(std::string(address));
    return place != ordinal_guard.end() && IsYoung(place->second.scanned_at) ? &place->second : nullptr;
}

// The spent file is there and could not be read: what it holds is not in the set. Guarded by wallet_mutex.
bool spent_file_unread = false;

std::string SpentFolder() { return StoreRoot() + "/ord_snap"; }
std::string SpentPath(const std::string& cache_id) { return SpentFolder() + "/" + cache_id + "_spent.json"; }

bool IsFileNameByte(char c) { return IsAsciiLetterOrDigit(c) || c == '-' || c == '_'; }

std::string WalletIdOrNone() {
    std::string id = WalletId();
    return id.empty() ? "none" : id;
}

std::string OfferFilePath() {
    std::string name = WalletIdOrNone();
    std::erase_if(name, [](char c) { return !IsFileNameByte(c); });
    if (name.empty()) name = "none";
    const std::string folder = StoreRoot() + "/gallery";
    MakeFolders(folder);
    return folder + "/offer_locks_" + name + ".json";
}

std::string ReserveFilePath(const char* shop) {
    std::string name = WalletIdOrNone();
    std::replace_if(
        name.begin(), name.end(), [](char c) { return !IsFileNameByte(c); }, '_');
    name.resize(std::min(name.size(), kMaxReserveName));
    const std::string folder = StoreRoot() + shop;
    MakeFolders(folder);
    return folder + "/reserves_" + name + ".json";
}

// What a row reserves, as ReserveKeys. The fields that the guard does not need are read for their type alone.
std::vector<std::string> ReadEmporiumRow(FieldReader& fields) {
    std::vector<std::string> keys{ReserveKey(fields.Text("utxo"))};
    fields.Text("origin");
    fields.Text("listing");
    fields.Integer("exp", 0);
    return keys;
}

std::vector<std::string> ReadGalleryRow(FieldReader& fields) {
    std::vector<std::string> keys{ReserveKey(fields.Text("pic_utxo")), ReserveKey(fields.Text("cert_utxo"))};
    const int64_t exp = fields.Integer("exp", 0);  // Unix seconds; 0: no end
    fields.Text("pic");
    fields.Text("cert");
    fields.Integer("price_sats", -1);
    fields.Index("spot");
    const bool dropped = keys.front().empty();
    const bool expired = exp > 0 && exp < UnixSeconds();
    if (dropped || expired) keys.clear();
    return keys;
}

// The keys of all rows before the first malformed one. False when the file is there and cannot be read.
bool ReadReserveFile(const std::string& path, std::vector<std::string> (*read)(FieldReader&),
                     std::unordered_set<std::string>& reserved) {
    reserved.clear();
    const StoreFile file = ReadStoreFile(path);
    if (file.state == FileState::kUnreadable) return false;
    const json* rows = FindJsonKey(file.document, "reserves");
    if (rows == nullptr || !rows->is_array()) return true;
    for (const json& element : *rows) {
        if (!element.is_object()) continue;
        FieldReader fields{element};
        std::vector<std::string> keys = read(fields);
        if (fields.wrong_type) break;
        for (std::string& key : keys) reserved.insert(std::move(key));
    }
    return true;
}

// For the player, who has to mend it: the file by its place in the store.
std::string CannotReadText(std::string_view path) {
    return "cannot read " + std::string(path.substr(StoreRoot().size() + 1)) + "; nothing was spent.";
}

std::string ReserveKeyOf(std::string_view txid, uint32_t vout) {
    return ReserveKey(OfferLockKey(txid, vout));
}

// The satoshis of an output of a decoded transaction. Some services write whole coins, some satoshis.
std::optional<int64_t> DecodedAmount(const json& output) {
    if (const json* satoshis = FindJsonNumber(output, "satoshis"))
        return RoundToSatoshis(satoshis->get<double>());
    const json* value = FindJsonNumber(output, "value");
    if (value == nullptr) return std::nullopt;
    const double amount = value->get<double>();
    return RoundToSatoshis(amount > 1000 ? amount : amount * 100'000'000);
}

std::optional<uint32_t> DecodedIndex(const json& output, std::size_t position) {
    const json* number = FindJsonKey(output, "n");
    if (number != nullptr && number->is_number_integer()) return JsonIndex(*number);
    return static_cast<uint32_t>(position);
}

std::vector<std::string> DecodedAddresses(const json& output) {
    std::vector<std::string> addresses;
    const json* script = FindJsonKey(output, "scriptPubKey");
    if (script == nullptr) return addresses;
    const json* several = FindJsonKey(*script, "addresses");
    if (several != nullptr && several->is_array()) {
        for (const json& address : *several) {
            if (address.is_string()) addresses.push_back(address.get<std::string>());
        }
    }
    std::string single = StoreText(*script, "address");
    if (!single.empty()) addresses.push_back(std::move(single));
    return addresses;
}

bool IsPending(const PendingOutput& output) {
    return std::any_of(pending_outputs.begin(), pending_outputs.end(),
                       [&output](const PendingOutput& other) { return SameOutpoint(other, output); });
}

// Makes an output pending when one of the addresses is the wallet's.
bool AddRecovered(const Utxo& utxo, const std::vector<std::string>& addresses) {
    if (IsSpent(utxo.txid, utxo.vout)) return false;
    for (const std::string& candidate : addresses) {
        const OwnedAddress* owned = FindOwnedAddress(candidate);
        if (owned == nullptr) continue;
        PendingOutput output{utxo.txid, utxo.vout, utxo.value, {}, {}, owned->hash};
        if (IsPending(output)) return false;
        std::string derived;
        if (!DeriveAtPath(owned->path, output.priv, output.pub, derived)) continue;
        pending_outputs.push_back(std::move(output));
        return true;
    }
    return false;
}

// The first of the two forms that the chain API gives at all, whether it is a document or not.
json FetchTransaction(std::string_view txid) {
    const auto url = UrlWithName(std::string(kChainApiBaseUrl) + "/tx/", txid);
    json document;
    std::string error;
    const auto parse = [&document](std::string_view body) {
        document = ParseForeignJson(body, kTransactionAnswer);
        return true;
    };
    const auto get = [&](const std::string& form) {
        return HttpGetAndRead(form, error, kRecoverTimeoutSeconds, kTransactionAnswer.bytes, parse);
    };
    if (url && !get(*url)) get(*url + "/decoded");
    return document;
}

}  // namespace

std::string OfferLockKey(std::string_view txid, uint32_t vout) {
    return Lower(txid) + "_" + std::to_string(vout);
}

std::string ReserveKey(std::string_view text) {
    std::string key = Lower(text);
    std::replace(key.begin(), key.end(), ':', '_');
    return key;
}

void MarkSpentInMemory(std::string_view txid, uint32_t vout) {
    spent_set.insert(OutpointKey(txid, vout));
    const std::string flipped = FlipTxidHex(txid);
    if (!flipped.empty()) spent_set.insert(OutpointKey(flipped, vout));
}

void MarkSpent(std::span<const SpendInput> inputs) {
    for (const SpendInput& input : inputs) MarkSpentInMemory(input.txid, input.vout);
    SaveSpentSet();
}

void SaveSpentSet() {
    const std::string cache_id = WalletCacheId();
    if (cache_id.empty() || cache_id == "wallet") return;
    const StoreLock lock;
    if (!LoadSpentSet()) return;
    MakeFolders(SpentFolder());
    const json document = {{"outpoints", spent_set}};
    WriteStoreFile(SpentPath(cache_id), document.dump(-1, ' ', false, json::error_handler_t::replace));
}

bool LoadSpentSet() {
    const StoreFile file = ReadStoreFile(SpentPath(WalletCacheId()));
    spent_file_unread = file.state == FileState::kUnreadable;
    const json* outpoints = FindJsonKey(file.document, "outpoints");
    if (outpoints == nullptr || !outpoints->is_array()) return !spent_file_unread;
    for (const json& outpoint : *outpoints) {
        if (!outpoint.is_string()) continue;
        std::string key = outpoint.get<std::string>();
        if (!key.empty()) spent_set.insert(std::move(key));
    }
    return true;
}

std::string OriginOf(const json& object) {
    const json* origin = FindJsonKey(object, "origin");
    if (origin == nullptr) return {};
    return origin->is_string() ? origin->get<std::string>() : StoreText(*origin, "outpoint");
}

bool ScanOrdinals(const std::string& address, std::set<std::string>& keys) {
    keys.clear();
    if (!ReadGuardListing("/txos/address/", address, kOriginScanTimeoutSeconds, [&keys](const json& element) {
            if (OriginOf(element).empty()) return true;
            FieldReader fields{element};
            return AddOutpointOf(fields, keys);
        })) {
        return false;
    }
    AddTokens(address, keys);
    return true;
}

void StoreOrdinalGuard(const std::string& address, const std::set<std::string>& keys, bool ok) {
    const int64_t now = MonotonicNs();
    OrdinalGuardEntry& entry = ordinal_guard[address];
    entry = {ok, now, ok || entry.covers};
    for (const std::string& key : keys) {
        named_ordinals.insert(key);
        const std::size_t colon = std::min(key.find(':'), key.size());
        const std::string flipped = FlipTxidHex(key.substr(0, colon));
        if (!flipped.empty()) named_ordinals.insert(flipped + key.substr(colon));
    }
    if (ok) return;
    ordinals_outage = true;
    ordinals_outage_at = now;
}

bool OrdinalsOutageRunning() { return ordinals_outage && IsYoung(ordinals_outage_at); }

bool HasFreshGuard(std::string_view address) { return FreshGuard(address) != nullptr; }

void NoteListing(const std::string& address) {
    if (const auto place = ordinal_guard.find(address); place != ordinal_guard.end()) {
        place->second.covers = false;
    }
}

void NoteFailedScan() { scan_failed_at = MonotonicNs(); }

bool IsCovered(std::string_view address) {
    const auto place = ordinal_guard.find(std::string(address));
    return place != ordinal_guard.end() && place->second.covers;
}

bool ScanFailedLately() { return scan_failed_at && IsYoung(*scan_failed_at); }

bool IsOrdinalForAddress(std::string_view address, const Utxo& utxo) {
    if (named_ordinals.contains(OutpointKey(utxo.txid, utxo.vout))) return true;
    // Most inscriptions and tokens ride on single satoshis, so without a scan to speak for it each is
    // suspect.
    if (utxo.value != 1) return false;
    const OrdinalGuardEntry* guard = FreshGuard(address);
    return OrdinalsOutageRunning() || guard == nullptr || !guard->ok;
}

bool IsOrdinalAnywhere(const Utxo& utxo) {
    return named_ordinals.contains(OutpointKey(utxo.txid, utxo.vout)) ||
           (OrdinalsOutageRunning() && utxo.value == 1);
}

bool LoadOfferLocks(std::unordered_set<std::string>& list) {
    list.clear();
    const StoreFile file = ReadStoreFile(OfferFilePath());
    if (file.state == FileState::kUnreadable) return false;
    const json* locks = FindJsonKey(file.document, "utxos");
    if (locks == nullptr || !locks->is_array()) return true;
    for (const json& lock : *locks) {
        if (!lock.is_string()) continue;
        std::string key = Lower(lock.get_ref<const std::string&>());
        if (!key.empty()) list.insert(std::move(key));
    }
    return true;
}

bool LoadReserves(Reserves& reserves, std::string& error) {
    const std::string emporium = ReserveFilePath("/emporium"), gallery = ReserveFilePath("/gallery");
    error.clear();
    if (!ReadReserveFile(emporium, ReadEmporiumRow, reserves.emporium)) {
        error = CannotReadText(emporium);
    } else if (!ReadReserveFile(gallery, ReadGalleryRow, reserves.gallery)) {
        error = CannotReadText(gallery);
    } else if (!LoadOfferLocks(reserves.offer_locks)) {
        error = CannotReadText(OfferFilePath());
    }
    return error.empty();
}

bool IsEmporiumReserved(const Reserves& reserves, std::string_view txid, uint32_t vout) {
    return reserves.emporium.contains(ReserveKeyOf(txid, vout));
}

bool IsGalleryReserved(const Reserves& reserves, std::string_view txid, uint32_t vout) {
    return reserves.gallery.contains(ReserveKeyOf(txid, vout));
}

bool IsReserved(const Reserves& reserves, std::string_view txid, uint32_t vout) {
    return IsEmporiumReserved(reserves, txid, vout) || IsGalleryReserved(reserves, txid, vout) ||
           reserves.offer_locks.contains(OfferLockKey(txid, vout));
}

void AddCandidate(Collection& collection, const Utxo& utxo, const SecretString& priv, const std::string& pub,
                  const Hash160& hash, std::string_view address) {
    if (!IsTxidText(utxo.txid) || IsSpent(utxo.txid, utxo.vout)) return;
    if (address.empty() ? IsOrdinalAnywhere(utxo) : IsOrdinalForAddress(address, utxo)) return;
    if (IsReserved(collection.reserves, utxo.txid, utxo.vout)) return;
    if (!collection.taken.insert(EitherOrderKey(utxo.txid, utxo.vout)).second) return;

    SpendInput input;
    input.txid = utxo.txid;
    input.vout = utxo.vout;
    input.value = utxo.value;
    input.priv = priv;
    input.pub = pub;
    input.hash = hash;
    collection.inputs.push_back(std::move(input));
    collection.total = AddSatoshis(collection.total, utxo.value);
}

void AddPendingCandidates(Collection& collection) {
    std::vector<const PendingOutput*> largest_first;
    for (const PendingOutput& pending : pending_outputs) largest_first.push_back(&pending);
    std::stable_sort(largest_first.begin(), largest_first.end(),
                     [](const auto* a, const auto* b) { return a->value > b->value; });
    for (const PendingOutput* pending : largest_first) {
        const SecretString& priv = pending->priv.empty() ? wallet_keys.priv : pending->priv;
        const std::string& pub = pending->pub.empty() ? wallet_keys.pub : pending->pub;
        AddCandidate(collection, {pending->txid, pending->vout, pending->value}, priv, pub, pending->hash,
                     /*address=*/"");
    }
}

bool CollectSpendable(std::vector<SpendInput>& inputs, int64_t& total, std::string& error) {
    inputs.clear();
    total = 0;
    error.clear();
    if (spent_file_unread && !LoadSpentSet()) {
        error = CannotReadText(SpentPath(WalletCacheId()));
        return false;
    }
    Collection collection;
    if (!LoadReserves(collection.reserves, error)) return false;
    SecretString priv;
    std::string pub, derived;
    for (const OwnedAddress& owned : OwnedAddresses()) {
        const UtxoCacheEntry* entry = FindCacheEntry(owned.address);
        if (entry == nullptr || !entry->valid || entry->utxos.empty()) continue;
        if (!DeriveAtPath(owned.path, priv, pub, derived)) continue;
        for (const Utxo& utxo : entry->utxos) {
            AddCandidate(collection, utxo, priv, pub, owned.hash, owned.address);
        }
    }
    AddPendingCandidates(collection);
    if (collection.inputs.empty() &&
        (RecoverOutputsFromTx(last_recorded_txid) || RecoverOutputsFromTx(last_broadcast_txid))) {
        AddPendingCandidates(collection);
    }
    std::erase_if(pending_outputs, [&collection](const PendingOutput& pending) {
        return collection.taken.contains(EitherOrderKey(pending.txid, pending.vout));
    });
    inputs = std::move(collection.inputs);
    total = collection.total;
    return !inputs.empty();
}

bool RecoverOutputsFromTx(std::string_view txid) {
    if (!IsTxidText(txid)) return false;
    const json document = FetchTransaction(txid);
    const json* outputs = FindJsonKey(document, "vout");
    if (outputs == nullptr || !outputs->is_array()) return false;
    bool added = false;
    for (std::size_t position = 0; position < outputs->size(); ++position) {
        const json& output = (*outputs)[position];
        if (!output.is_object()) continue;
        const std::optional<uint32_t> vout = DecodedIndex(output, position);
        const std::optional<int64_t> value = DecodedAmount(output);
        if (!vout || !value) continue;
        const Utxo utxo{std::string(txid), *vout, *value};
        if (AddRecovered(utxo, DecodedAddresses(output))) added = true;
    }
    return added;
}

void ClearGuardState() {
    spent_file_unread = false;
    ordinal_guard.clear();
    named_ordinals.clear();
    scan_failed_at.reset();
    ordinals_outage = false;
    ordinals_outage_at = 0;
}

}  // namespace brickfall
