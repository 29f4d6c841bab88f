#include <algorithm>
#include <deque>
#include <iterator>
#include <new>
#include <nlohmann/json.hpp>
#include <optional>
#include <unordered_map>
#include <utility>

#include "base/clock.h"
#include "base/text.h"
#include "base/workers.h"
#include "deployment/deployment.h"
#include "net/http_client.h"
#include "net/url_text.h"
#include "wallet/coins/ordinal_guard.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/json/json_numbers.h"
#include "wallet/store/app_binds.h"

namespace brickfall {

std::vector<UtxoCacheEntry>& utxo_cache = *new std::vector<UtxoCacheEntry>;
std::vector<PendingOutput>& pending_outputs = *new std::vector<PendingOutput>;
std::unordered_set<std::string>& spent_set = *new std::unordered_set<std::string>;

namespace {

using nlohmann::json;

constexpr int64_t kCacheFreshNs = 8'000'000'000;
constexpr std::size_t kMaxUnconfirmedReads = 16;
constexpr std::size_t kMaxCacheIdLength = 80;
constexpr int kListingTimeoutSeconds = 10;
constexpr int kVisibleTimeoutSeconds = 25;
constexpr int kPlainScanTimeoutSeconds = 20;
constexpr char kBadListText[] = "bad utxo list";
constexpr char kWalletChangedText[] = "wallet changed.";

// Where the entry of an address stands in utxo_cache, so that a wallet of a thousand addresses is not walked
// for each of them. Guarded by wallet_mutex.
std::unordered_map<std::string, std::size_t>& cache_index = *new std::unordered_map<std::string, std::size_t>;

// The members of a listing's element that are read.
constexpr std::string_view kOutputMembers[] = {
    "isSpentInMempoolTx", "tx_hash", "txid", "tx_pos", "vout", "value"};
constexpr std::string_view kHistoryMembers[] = {"tx_hash", "txid"};
constexpr std::string_view kInputMembers[] = {"txid", "vout"};
constexpr std::string_view kPlainMembers[] = {"origin", "outpoint", "data", "bsv21",    "bsv20",
                                              "insc",   "txid",     "vout", "satoshis", "value"};
constexpr ListShape kOutputList = {.root_is_list = true, .key = "result", .members = kOutputMembers};
constexpr ListShape kHistoryList = {.root_is_list = true, .key = "result", .members = kHistoryMembers};
constexpr ListShape kInputList = {.root_is_list = false, .key = "vin", .members = kInputMembers};
constexpr ListShape kPlainList = {.root_is_list = true, .members = kPlainMembers};

std::optional<std::string> AddressUrl(const std::string& address, const char* tail) {
    return UrlWithName(std::string(kChainApiBaseUrl) + "/address/", address, tail);
}

std::optional<std::string> TransactionUrl(std::string_view txid, const char* tail = "") {
    return UrlWithName(std::string(kChainApiBaseUrl) + "/tx/", txid, tail);
}

UtxoCacheEntry* FindEntry(std::string_view address) {
    if (cache_index.size() != utxo_cache.size()) {
        cache_index.clear();
        for (std::size_t i = 0; i < utxo_cache.size(); ++i) cache_index.emplace(utxo_cache[i].address, i);
    }
    const auto place = cache_index.find(std::string(address));
    return place == cache_index.end() ? nullptr : &utxo_cache[place->second];
}

void AddEntry(UtxoCacheEntry entry) {
    cache_index.emplace(entry.address, utxo_cache.size());
    utxo_cache.push_back(std::move(entry));
}

void DropSpent(std::vector<Utxo>& list) {
    std::erase_if(list, [](const Utxo& utxo) { return IsSpent(utxo.txid, utxo.vout); });
}

void KeepFirstOfEach(std::vector<Utxo>& list) {
    std::unordered_set<std::string> kept;
    std::erase_if(list, [&kept](const Utxo& utxo) {
        return !kept.insert(EitherOrderKey(utxo.txid, utxo.vout)).second;
    });
}

// The text under `first` when that is a string, else under `second`; nullptr when neither is one.
const std::string* FirstString(const json& object, const char* first, const char* second) {
    for (const char* key : {first, second}) {
        const json* value = FindJsonKey(object, key);
        if (value != nullptr && value->is_string()) return &value->get_ref<const std::string&>();
    }
    return nullptr;
}

std::optional<Utxo> ParseListedOutput(const json& element) {
    if (!element.is_object()) return std::nullopt;
    const json* spent = FindJsonKey(element, "isSpentInMempoolTx");
    if (spent != nullptr && spent->is_boolean() && spent->get<bool>()) return std::nullopt;
    const std::string* txid = FirstString(element, "tx_hash", "txid");
    if (txid == nullptr || !IsTxidText(*txid)) return std::nullopt;
    const bool has_position = FindJsonNumber(element, "tx_pos") != nullptr;
    const std::optional<uint32_t> vout = JsonIndexOr0(element, has_position ? "tx_pos" : "vout");
    const json* amount = FindJsonKey(element, "value");
    const int64_t value = amount != nullptr ? JsonExactInt64(*amount).value_or(0) : 0;
    if (!vout || value <= 0) return std::nullopt;
    return Utxo{*txid, *vout, value};
}

bool FetchListing(const std::string& address, const char* tail, std::vector<Utxo>& list, std::string& error) {
    const auto url = AddressUrl(address, tail);
    if (!url) return false;
    if (HttpGetAndRead(*url, error, kListingTimeoutSeconds, kListAnswer.bytes,
                       [&list](std::string_view body) { return ParseUtxoList(body, list); })) {
        return true;
    }
    if (error.empty()) error = kBadListText;
    return false;
}

// The ids of the newest unconfirmed transactions of an address, newest first.
std::deque<std::string> NewestUnconfirmed(const std::string& address) {
    const auto url = AddressUrl(address, "/unconfirmed/history");
    if (!url) return {};
    std::deque<std::string> ids;
    const auto take = [&ids](const json& element) {
        const std::string* txid = FirstString(element, "tx_hash", "txid");
        if (txid == nullptr || txid->size() != 64) return true;
        ids.push_front(*txid);
        if (ids.size() > kMaxUnconfirmedReads) ids.pop_back();
        return true;
    };
    std::string error;
    if (!HttpGetAndRead(*url, error, kListingTimeoutSeconds, kListAnswer.bytes, [&](std::string_view body) {
            return ForEachElement(body, kHistoryList, kListAnswer, take);
        })) {
        return {};
    }
    return ids;
}

// What a transaction spends, as either-order keys. Nothing when any input is malformed: a document that is
// wrong in one place is not believed in another.
std::vector<std::string> InputKeysOf(std::string_view txid) {
    const auto url = TransactionUrl(txid);
    if (!url) return {};
    std::vector<std::string> keys;
    const auto take = [&keys](const json& input) {
        if (!input.is_object()) return false;
        const json* spent = FindJsonKey(input, "txid");
        if (spent == nullptr) return true;
        if (!spent->is_string()) return false;
        const std::string& id = spent->get_ref<const std::string&>();
        const std::optional<uint32_t> vout = JsonIndexOr0(input, "vout");
        if (id.size() == 64 && vout) keys.push_back(EitherOrderKey(id, *vout));
        return true;
    };
    std::string error;
    if (!HttpGetAndRead(*url, error, kListingTimeoutSeconds, kListAnswer.bytes, [&](std::string_view body) {
            return ForEachElement(body, kInputList, kListAnswer, take);
        })) {
        return {};
    }
    return keys;
}

bool IsTokenOrInscription(const json& element) {
    if (!OriginOf(element).empty()) return true;
    const json* data = FindJsonKey(element, "data");
    if (data == nullptr) return false;
    return FindJsonKey(*data, "bsv21") != nullptr || FindJsonKey(*data, "bsv20") != nullptr ||
           FindJsonKey(*data, "insc") != nullptr;
}

// The plain output that an element of the ordinals listing is. False when the element is malformed.
bool TakePlainOutput(const json& element, std::vector<Utxo>& list) {
    if (!element.is_object() || IsTokenOrInscription(element)) return true;
    const json* txid = FindJsonKey(element, "txid");
    if (txid == nullptr) return true;
    if (!txid->is_string()) return false;
    const json* amount = FindJsonNumber(element, "satoshis");
    if (amount == nullptr) amount = FindJsonNumber(element, "value");
    const int64_t value = amount != nullptr ? JsonSatoshis(*amount).value_or(0) : 0;
    const std::optional<uint32_t> vout = JsonIndexOr0(element, "vout");
    const std::string& id = txid->get_ref<const std::string&>();
    if (IsTxidText(id) && vout && value > 1) list.push_back({id, *vout, value});
    return true;
}

// FetchUtxos, but that memory may run out.
bool FetchAllUtxos(const std::string& address, std::vector<Utxo>& list, std::string& error, bool& complete) {
    complete = FetchListing(address, "/unspent/all", list, error);
    bool fetched = complete;
    if (!fetched) {
        // Both halves are asked for always: either one is better than nothing. Only the first lists all that
        // is confirmed, so only it can prove that an output is gone.
        complete = FetchListing(address, "/unspent", list, error);
        std::string second_error;
        const bool unconfirmed = FetchListing(address, "/unconfirmed/unspent", list, second_error);
        if (!unconfirmed) error = second_error;
        fetched = complete || unconfirmed;
    }
    if (!fetched) {
        if (error.empty()) error = "no utxos";
        return false;
    }
    error.clear();
    std::stable_sort(list.begin(), list.end(), IsLarger);
    KeepFirstOfEach(list);
    DropMempoolSpent(address, list);
    return true;
}

}  // namespace

std::string OutpointKey(std::string_view txid, uint32_t vout) {
    return Lower(txid) + ":" + std::to_string(vout);
}

std::string FlipTxidHex(std::string_view txid) {
    if (txid.size() != 64) return {};
    const std::string lower = Lower(txid);
    std::string flipped;
    flipped.reserve(lower.size());
    for (std::size_t pair = lower.size(); pair > 0; pair -= 2) flipped.append(lower, pair - 2, 2);
    return flipped;
}

std::string EitherOrderKey(std::string_view txid, uint32_t vout) {
    std::string key = OutpointKey(txid, vout);
    const std::string flipped = FlipTxidHex(txid);
    if (flipped.empty()) return key;
    return std::min(key, OutpointKey(flipped, vout));
}

bool IsSpent(std::string_view txid, uint32_t vout) {
    if (spent_set.contains(OutpointKey(txid, vout))) return true;
    const std::string flipped = FlipTxidHex(txid);
    return !flipped.empty() && spent_set.contains(OutpointKey(flipped, vout));
}

bool SameOutpointText(std::string_view txid_a, std::string_view txid_b) {
    const std::string lower_b = Lower(txid_b);
    if (Lower(txid_a) == lower_b) return true;
    const std::string flipped_a = FlipTxidHex(txid_a);
    return !flipped_a.empty() && flipped_a == lower_b;
}

bool ParseUtxoList(std::string_view document, std::vector<Utxo>& list) {
    std::vector<Utxo> read;
    const auto take = [&read](const json& element) {
        if (std::optional<Utxo> utxo = ParseListedOutput(element)) read.push_back(std::move(*utxo));
        return true;
    };
    if (!ForEachElement(document, kOutputList, kListAnswer, take)) return false;
    std::move(read.begin(), read.end(), std::back_inserter(list));
    return true;
}

bool FetchUtxos(const std::string& address, std::vector<Utxo>& list, std::string& error, bool* complete) {
    list.clear();
    error.clear();
    bool whole = false;
    bool fetched = false;
    try {
        fetched = FetchAllUtxos(address, list, error, whole);
    } catch (const std::bad_alloc&) {
        list = {};
        whole = false;
        error = kOutOfMemoryText;
    }
    if (complete != nullptr) *complete = whole;
    return fetched;
}

void DropMempoolSpent(const std::string& address, std::vector<Utxo>& list) {
    if (address.empty() || list.empty()) return;
    std::unordered_set<std::string> spent_now;
    for (const std::string& txid : NewestUnconfirmed(address)) {
        for (std::string& key : InputKeysOf(txid)) spent_now.insert(std::move(key));
    }
    if (spent_now.empty()) return;
    std::erase_if(list, [&spent_now](const Utxo& utxo) {
        return spent_now.contains(EitherOrderKey(utxo.txid, utxo.vout));
    });
}

bool TxVisible(std::string_view txid) {
    if (!IsTxidText(txid)) return false;
    std::string error;
    const auto get = [&error](const std::optional<std::string>& url, const auto& shows) {
        return url && HttpGetAndRead(*url, error, kVisibleTimeoutSeconds, kMaxBodyBytes, shows);
    };
    return get(TransactionUrl(txid, "/hex"), [](std::string_view body) { return body.size() > 20; }) ||
           get(TransactionUrl(txid),
               [](std::string_view body) { return body.find("txid") != std::string_view::npos; });
}

bool ScanPlainOutputs(const std::string& address, std::vector<Utxo>& list) {
    list.clear();
    const auto url = UrlWithName(std::string(kOrdinalsApiBaseUrl) + "/txos/address/", address, "/unspent");
    std::string error;
    const auto take = [&list](const json& element) { return TakePlainOutput(element, list); };
    if (!url ||
        !HttpGetAndRead(*url, error, kPlainScanTimeoutSeconds, kListAnswer.bytes, [&](std::string_view body) {
            return ForEachElement(body, kPlainList, kListAnswer, take);
        })) {
        list.clear();
        return false;
    }
    KeepFirstOfEach(list);
    return !list.empty();
}

void FetchRefreshRecords(std::vector<AddressRefresh>& records, OrdinalScans scans) {
    RunInParallel(records.size(), kMostFetchesAtOnce, [&records, scans](std::size_t i) {
        AddressRefresh& record = records[i];
        try {
            std::string error;
            if (!record.scan_only) {
                record.ok = FetchUtxos(record.address, record.utxos, error, &record.complete);
            }
            const bool has_coins = record.scan_only || !record.utxos.empty();
            record.scanned = scans == OrdinalScans::kAll || (scans == OrdinalScans::kWhereCoins && has_coins);
            if (record.scanned) record.guard_ok = ScanOrdinals(record.address, record.guard_keys);
        } catch (const std::bad_alloc&) {
            AddressRefresh unknown;  // counts as not fetched
            unknown.address = std::move(record.address);
            record = std::move(unknown);
        }
    });
}

void WalletAddresses(std::vector<std::string>& list) {
    list.clear();
    for (const OwnedAddress& owned : OwnedAddresses()) list.push_back(owned.address);
}

std::string WalletCacheId() {
    std::string name = WalletId();
    if (name.empty()) name = wallet_keys.identity_address;
    if (name.empty()) name = wallet_keys.address;
    for (char& c : name) {
        if (!IsAsciiLetterOrDigit(c)) c = '_';
    }
    if (name.empty()) return "wallet";
    name.resize(std::min(name.size(), kMaxCacheIdLength));
    return name;
}

void StoreUtxoList(const std::string& address, const std::vector<Utxo>& list, bool ok, bool merge) {
    UtxoCacheEntry* entry = FindEntry(address);
    if (!ok) {
        if (entry == nullptr) AddEntry({address, list, MonotonicNs(), /*valid=*/false});
        return;
    }
    std::vector<Utxo> merged = list;
    std::unordered_set<std::string> present;
    for (const Utxo& utxo : list) present.insert(EitherOrderKey(utxo.txid, utxo.vout));
    const auto add_missing = [&](const Utxo& utxo) {
        if (IsSpent(utxo.txid, utxo.vout)) return;
        if (present.insert(EitherOrderKey(utxo.txid, utxo.vout)).second) merged.push_back(utxo);
    };
    if (merge && entry != nullptr) {
        for (const Utxo& old : entry->utxos) add_missing(old);
    }
    Hash160 hash;
    if (!pending_outputs.empty() && DecodeAddress(address, hash)) {
        for (const PendingOutput& pending : pending_outputs) {
            if (pending.hash == hash) add_missing({pending.txid, pending.vout, pending.value});
        }
    }
    std::stable_sort(merged.begin(), merged.end(), IsLarger);
    if (entry == nullptr) {
        AddEntry({address, std::move(merged), MonotonicNs(), /*valid=*/true});
        return;
    }
    entry->utxos = std::move(merged);
    entry->fetched_at = MonotonicNs();
    entry->valid = true;
}

void PruneCacheOfSpent() {
    for (UtxoCacheEntry& entry : utxo_cache) DropSpent(entry.utxos);
}

void PrunePending(const std::string& address, const std::vector<Utxo>& list) {
    Hash160 hash;
    if (pending_outputs.empty() || !DecodeAddress(address, hash)) return;
    std::unordered_set<std::string> listed;
    for (const Utxo& utxo : list) listed.insert(EitherOrderKey(utxo.txid, utxo.vout));
    std::erase_if(pending_outputs, [&](const PendingOutput& pending) {
        if (pending.hash != hash) return false;
        return IsSpent(pending.txid, pending.vout) ||
               !listed.contains(EitherOrderKey(pending.txid, pending.vout));
    });
}

void AddToCache(const std::string& address, const Utxo& utxo) {
    if (address.empty() || !IsTxidText(utxo.txid)) return;
    UtxoCacheEntry* entry = FindEntry(address);
    if (entry == nullptr) {
        AddEntry({address, {utxo}, MonotonicNs(), /*valid=*/true});
        return;
    }
    const bool known = std::any_of(entry->utxos.begin(), entry->utxos.end(),
                                   [&utxo](const Utxo& old) { return SameOutpoint(old, utxo); });
    if (!known) {
        entry->utxos.insert(std::upper_bound(entry->utxos.begin(), entry->utxos.end(), utxo, IsLarger), utxo);
    }
    entry->fetched_at = MonotonicNs();
    entry->valid = true;
}

bool CachedUtxos(std::string_view address, std::vector<Utxo>& list, bool& valid) {
    list.clear();
    valid = false;
    const UtxoCacheEntry* entry = FindEntry(address);
    if (entry == nullptr) return false;
    list = entry->utxos;
    valid = entry->valid;
    return true;
}

const UtxoCacheEntry* FindCacheEntry(std::string_view address) { return FindEntry(address); }

bool IsCacheFresh(std::string_view address) {
    const UtxoCacheEntry* entry = FindEntry(address);
    return entry != nullptr && entry->valid && MonotonicNs() - entry->fetched_at < kCacheFreshNs;
}

void ApplyRefresh(const std::vector<AddressRefresh>& records) {
    const WalletLock lock(wallet_mutex);
    for (const AddressRefresh& record : records) {
        std::vector<Utxo> unspent = record.utxos;
        DropSpent(unspent);
        StoreUtxoList(record.address, unspent, record.ok, /*merge=*/!record.complete);
        if (record.ok && record.complete) PrunePending(record.address, unspent);
        if (record.ok) NoteListing(record.address);
        if (record.scanned && !record.guard_ok) NoteFailedScan();
        // Where no coin was found and nobody was asked, there is nothing to guard, and no outage to tell of.
        const bool needs_no_guard = record.utxos.empty() && !record.scanned && !record.guard_ok;
        if (!needs_no_guard) StoreOrdinalGuard(record.address, record.guard_keys, record.guard_ok);
    }
}

bool EnsureUtxoCache(WalletLock& lock, std::string& error) {
    error.clear();
    if (!LoadWallet()) {
        error = "no wallet";
        return false;
    }
    const std::string cache_id = WalletCacheId();
    if (!ListOwnedAddresses(lock) || WalletCacheId() != cache_id) {
        error = kWalletChangedText;
        return false;
    }
    std::vector<AddressRefresh> records;
    const bool may_scan = !ScanFailedLately();
    for (const OwnedAddress& owned : OwnedAddresses()) {
        const UtxoCacheEntry* entry = FindEntry(owned.address);
        const bool known = entry != nullptr && entry->valid;
        if (known && (entry->utxos.empty() || !may_scan || IsCovered(owned.address))) continue;
        AddressRefresh& record = records.emplace_back();
        record.address = owned.address;
        record.scan_only = known;
    }
    if (records.empty()) return true;

    lock.unlock();
    FetchRefreshRecords(records, may_scan ? OrdinalScans::kWhereCoins : OrdinalScans::kNone);
    lock.lock();
    if (!LoadWallet() || WalletCacheId() != cache_id) {
        error = kWalletChangedText;
        return false;
    }
    ApplyRefresh(records);
    return true;
}

void RescanPlainOutputs(WalletLock& lock) {
    struct PlainScan {
        std::string address;
        std::vector<Utxo> utxos;
        bool ok = false;
    };
    std::vector<PlainScan> scans;
    for (const OwnedAddress& owned : OwnedAddresses()) scans.emplace_back().address = owned.address;
    const std::string cache_id = WalletCacheId();

    lock.unlock();
    for (PlainScan& scan : scans) scan.ok = ScanPlainOutputs(scan.address, scan.utxos);
    lock.lock();
    if (!LoadWallet() || WalletCacheId() != cache_id) return;
    for (PlainScan& scan : scans) {
        if (!scan.ok) continue;
        DropSpent(scan.utxos);
        if (scan.utxos.empty()) continue;
        StoreUtxoList(scan.address, scan.utxos, /*ok=*/true, /*merge=*/true);
        PrunePending(scan.address, scan.utxos);
    }
}

int64_t SpendableBalance() {
    const std::string& address = wallet_keys.address;
    int64_t sum = 0;
    std::unordered_set<std::string> counted;
    const UtxoCacheEntry* entry = FindEntry(address);
    const bool known = entry != nullptr && entry->valid;
    if (known) {
        for (const Utxo& utxo : entry->utxos) {
            if (IsSpent(utxo.txid, utxo.vout) || IsOrdinalForAddress(address, utxo)) continue;
            if (counted.insert(EitherOrderKey(utxo.txid, utxo.vout)).second)
                sum = AddSatoshis(sum, utxo.value);
        }
    }
    Hash160 hash;
    const bool one_owner = DecodeAddress(address, hash);
    for (const PendingOutput& pending : pending_outputs) {
        if (one_owner && pending.hash != hash) continue;
        const Utxo utxo{pending.txid, pending.vout, pending.value};
        if (IsSpent(utxo.txid, utxo.vout) || IsOrdinalAnywhere(utxo)) continue;
        if (counted.insert(EitherOrderKey(utxo.txid, utxo.vout)).second) sum = AddSatoshis(sum, utxo.value);
    }
    return !known && sum == 0 ? -1 : sum;
}

void ClearUtxoState() {
    utxo_cache.clear();
    cache_index.clear();
    pending_outputs.clear();
    spent_set.clear();
}

}  // namespace brickfall
