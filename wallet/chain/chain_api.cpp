#include "wallet/chain/chain_api.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <iterator>
#include <new>
#include <nlohmann/json.hpp>
#include <optional>
#include <unordered_set>
#include <utility>

#include "base/foreign_json.h"
#include "base/text.h"
#include "deployment/deployment.h"
#include "net/answer_limits.h"
#include "net/http_client.h"
#include "net/url_text.h"
#include "wallet/chain/listing.h"
#include "wallet/json/json_numbers.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr std::size_t kMaxUnconfirmedReads = 16;
constexpr int kListingTimeoutSeconds = 10;
constexpr int kVisibleTimeoutSeconds = 25;
constexpr char kBadListText[] = "bad utxo list";

// The members of a listing's element that are read.
constexpr std::string_view kOutputMembers[] = {
    "isSpentInMempoolTx", "tx_hash", "txid", "tx_pos", "vout", "value"};
constexpr std::string_view kHistoryMembers[] = {"tx_hash", "txid"};
constexpr std::string_view kInputMembers[] = {"txid", "vout"};
constexpr ListShape kOutputList = {.root_is_list = true, .key = "result", .members = kOutputMembers};
constexpr ListShape kHistoryList = {.root_is_list = true, .key = "result", .members = kHistoryMembers};
constexpr ListShape kInputList = {.root_is_list = false, .key = "vin", .members = kInputMembers};

std::optional<std::string> AddressUrl(const std::string& address, const char* tail) {
    return UrlWithName(std::string(kChainApiBaseUrl) + "/address/", address, tail);
}

std::optional<std::string> TransactionUrl(std::string_view txid, const char* tail = "") {
    return UrlWithName(std::string(kChainApiBaseUrl) + "/tx/", txid, tail);
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
    std::deque<std::string> ids;
    const auto take = [&ids](const json& element) {
        const std::string* txid = FirstString(element, "tx_hash", "txid");
        if (txid == nullptr || txid->size() != 64) return true;
        ids.push_front(*txid);
        if (ids.size() > kMaxUnconfirmedReads) ids.pop_back();
        return true;
    };
    const auto url = AddressUrl(address, "/unconfirmed/history");
    if (!ReadListing(url, kHistoryList, kListingTimeoutSeconds, take)) ids.clear();
    return ids;
}

// What a transaction spends, as either-order keys. Nothing when any input is malformed: a document that is
// wrong in one place is not believed in another.
std::vector<std::string> InputKeysOf(std::string_view txid) {
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
    if (!ReadListing(TransactionUrl(txid), kInputList, kListingTimeoutSeconds, take)) keys.clear();
    return keys;
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

}  // namespace brickfall
