#include "wallet/chain/ordinals_api.h"

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>

#include "base/foreign_json.h"
#include "base/text.h"
#include "deployment/deployment.h"
#include "net/url_text.h"
#include "wallet/chain/listing.h"
#include "wallet/json/json_fields.h"
#include "wallet/json/json_numbers.h"
#include "wallet/json/store_json.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr int kPlainScanTimeoutSeconds = 20;
constexpr int kOriginScanTimeoutSeconds = 10;
constexpr int kTokenScanTimeoutSeconds = 12;

// The members of a listing's element that are read.
constexpr std::string_view kGuardMembers[] = {"origin", "outpoint", "spend", "txid", "vout"};
constexpr ListShape kGuardList = {.root_is_list = true, .members = kGuardMembers};
constexpr std::string_view kPlainMembers[] = {"origin", "outpoint", "data", "bsv21",    "bsv20",
                                              "insc",   "txid",     "vout", "satoshis", "value"};
constexpr ListShape kPlainList = {.root_is_list = true, .members = kPlainMembers};

// What an address holds, as the listing below `folder` tells it.
std::optional<std::string> ListingUrl(const char* folder, const std::string& address) {
    return UrlWithName(std::string(kOrdinalsApiBaseUrl) + folder, address, "/unspent");
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

// Adds the outpoint of a listing's element. False when a field has the wrong JSON type.
bool AddOutpointOf(FieldReader& fields, std::set<std::string>& keys) {
    const std::string txid = fields.Text("txid");
    const std::optional<uint32_t> vout = fields.Index("vout");
    if (fields.wrong_type) return false;
    if (IsTxidText(txid) && vout) keys.insert(OutpointKey(txid, *vout));
    return true;
}

// What a listing that fails in its middle has told until then is held back as well.
bool AddTokens(const std::string& address, std::set<std::string>& keys) {
    const auto take = [&keys](const json& element) {
        if (!element.is_object()) return true;
        FieldReader fields{element};
        const bool unspent = fields.Text("spend").empty();
        return !fields.wrong_type && (!unspent || AddOutpointOf(fields, keys));
    };
    return ReadListing(ListingUrl("/bsv20/", address), kGuardList, kTokenScanTimeoutSeconds, take);
}

}  // namespace

bool ScanPlainOutputs(const std::string& address, std::vector<Utxo>& list) {
    list.clear();
    const auto take = [&list](const json& element) { return TakePlainOutput(element, list); };
    if (!ReadListing(ListingUrl("/txos/address/", address), kPlainList, kPlainScanTimeoutSeconds, take)) {
        list.clear();
        return false;
    }
    KeepFirstOfEach(list);
    return !list.empty();
}

std::string OriginOf(const json& object) {
    const json* origin = FindJsonKey(object, "origin");
    if (origin == nullptr) return {};
    return origin->is_string() ? origin->get<std::string>() : StoreText(*origin, "outpoint");
}

bool ScanOrdinals(const std::string& address, std::set<std::string>& keys, bool* tokens_listed) {
    keys.clear();
    if (tokens_listed != nullptr) *tokens_listed = false;
    const auto take = [&keys](const json& element) {
        if (OriginOf(element).empty()) return true;
        FieldReader fields{element};
        return AddOutpointOf(fields, keys);
    };
    if (!ReadListing(ListingUrl("/txos/address/", address), kGuardList, kOriginScanTimeoutSeconds, take)) {
        return false;
    }
    const bool listed = AddTokens(address, keys);
    if (tokens_listed != nullptr) *tokens_listed = listed;
    return true;
}

}  // namespace brickfall
