#include "wallet/payment/output_recovery.h"

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "base/foreign_json.h"
#include "base/secret.h"
#include "base/text.h"
#include "deployment/deployment.h"
#include "net/answer_limits.h"
#include "net/http_client.h"
#include "net/url_text.h"
#include "wallet/coins/spent_set.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/json/json_numbers.h"
#include "wallet/json/store_json.h"
#include "wallet/keys/key_derivation.h"
#include "wallet/protocol/outpoint.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr int kRecoverTimeoutSeconds = 25;

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

// What an answer's outputs are held against. It may name one address of the wallet a hundred thousand times.
class Recovery {
  public:
    Recovery() {
        for (const PendingOutput& pending : pending_outputs)
            pending_.insert(EitherOrderKey(pending.txid, pending.vout));
    }

    // Makes an output pending when one of the addresses is the wallet's.
    bool Add(const Utxo& utxo, const std::vector<std::string>& addresses) {
        if (IsSpent(utxo.txid, utxo.vout)) return false;
        for (const std::string& candidate : addresses) {
            const OwnedAddress* owned = FindOwnedAddress(candidate);
            if (owned == nullptr) continue;
            const std::string key = EitherOrderKey(utxo.txid, utxo.vout);
            if (pending_.contains(key)) return false;
            const Keys& keys = KeysOf(*owned);
            if (keys.priv.empty()) continue;
            pending_.insert(key);
            pending_outputs.push_back({utxo.txid, utxo.vout, utxo.value, keys.priv, keys.pub, owned->hash});
            return true;
        }
        return false;
    }

  private:
    struct Keys {
        SharedSecret priv;  // empty when it cannot be derived
        std::string pub;
    };

    const Keys& KeysOf(const OwnedAddress& owned) {
        const auto [place, is_new] = keys_.try_emplace(owned.address);
        Keys& keys = place->second;
        SecretString priv;
        std::string derived;
        if (is_new && DeriveAtPath(owned.path, priv, keys.pub, derived)) keys.priv = std::move(priv);
        return keys;
    }

    std::unordered_set<std::string> pending_;
    std::unordered_map<std::string, Keys> keys_;
};

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

bool RecoverOutputsFromTx(std::string_view txid) {
    if (!IsTxidText(txid)) return false;
    const json document = FetchTransaction(txid);
    const json* outputs = FindJsonKey(document, "vout");
    if (outputs == nullptr || !outputs->is_array()) return false;
    Recovery recovery;
    bool added = false;
    for (std::size_t position = 0; position < outputs->size(); ++position) {
        const json& output = (*outputs)[position];
        if (!output.is_object()) continue;
        const std::optional<uint32_t> vout = DecodedIndex(output, position);
        const std::optional<int64_t> value = DecodedAmount(output);
        if (!vout || !value) continue;
        const Utxo utxo{std::string(txid), *vout, *value};
        if (recovery.Add(utxo, DecodedAddresses(output))) added = true;
    }
    return added;
}

}  // namespace brickfall
