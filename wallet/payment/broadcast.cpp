#include "wallet/payment/broadcast.h"

#include <algorithm>
#include <exception>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/text.h"
#include "base/workers.h"
#include "deployment/deployment.h"
#include "net/http_client.h"
#include "wallet/coins/ordinal_guard.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/json/json_numbers.h"
#include "wallet/keys/key_derivation.h"
#include "wallet/keys/wallet_keys.h"

namespace brickfall {

std::string& last_broadcast_txid = *new std::string;
std::string& last_recorded_txid = *new std::string;

namespace {

using nlohmann::json;

// Seconds, and tries in all.
constexpr int kRelayTimeout = 2;  // a payment waits no longer for the relay
constexpr int kRelayAttempts = 1;
constexpr int kBackgroundTimeout = 15;
constexpr int kBackgroundAttempts = 1;
constexpr int kChainTimeout = 60;
constexpr int kChainAttempts = 2;
constexpr int kArcTimeout = 60;
constexpr int kArcAttempts = 2;

std::string HexBody(const char* key, const std::string& hex) { return json{{key, hex}}.dump(); }

bool Contains(std::string_view text, std::string_view word) {
    return text.find(word) != std::string_view::npos;
}

// An answer of status 2xx is a yes unless it says no in so many words.
bool RelayAccepts(const std::string& body) {
    const std::string url = std::string("https://") + kPaymailDomain + "/oi/submit";
    std::string response;
    std::string error;
    if (!HttpPostJson(url, body, response, error, kRelayTimeout, kRelayAttempts, kShortAnswer.bytes))
        return false;
    const json answer = ParseForeignJson(response, kShortAnswer);
    const json* ok = FindJsonKey(answer, "ok");
    return ok == nullptr || !ok->is_boolean() || ok->get<bool>();
}

// The public chain gets the transaction as well, without the payment waiting for it.
void SubmitInBackground(const std::string& url, const std::string& body) {
    try {
        StartWorker([url, body] {
            std::string response;
            std::string error;
            HttpPostJson(url, body, response, error, kBackgroundTimeout, kBackgroundAttempts,
                         kShortAnswer.bytes);
        });
    } catch (const std::exception&) {
        // No thread or no memory to be had. The relay holds the transaction: the payment stands all the same.
    }
}

// The id that the chain API names in whatever form it chose to answer; any text when it names none.
std::string AnsweredId(const std::string& response) {
    const std::string_view bare = StripBack(StripFront(response, "\" \n"), "\" \n\r");
    if (bare.size() == 64) return std::string(bare);
    const json answer = ParseForeignJson(response, kShortAnswer);
    const json* named = FindJsonKey(answer, "txid");
    const json& id = named != nullptr ? *named : answer;
    return id.is_string() ? id.get<std::string>() : std::string();
}

// True with the hash that a payment script pays; false for every other form of script.
bool PaidHash(const ByteBuffer& script, Hash160& hash) {
    if (script.size() != 25) return false;
    std::copy_n(script.begin() + 3, hash.size(), hash.begin());
    return script == P2pkhScript(hash);
}

bool AddressPays(std::string_view address, const Hash160& hash) {
    Hash160 decoded{};
    return DecodeAddress(address, decoded) && decoded == hash;
}

PendingOutput MakePending(const std::string& txid, uint32_t vout, int64_t value, const Hash160& hash,
                          std::span<const SpendInput> inputs) {
    PendingOutput pending{txid, vout, value, wallet_keys.priv, wallet_keys.pub, hash};
    const auto owner = std::find_if(inputs.begin(), inputs.end(), [&](const SpendInput& input) {
        return !input.priv.empty() && input.hash == hash;
    });
    if (owner != inputs.end()) {
        pending.priv = owner->priv;
        pending.pub = owner->pub;
    }
    return pending;
}

void RememberOwnOutput(PendingOutput pending) {
    const Utxo utxo{pending.txid, pending.vout, pending.value};
    const std::string address = AddressForHash(pending.hash);
    pending_outputs.push_back(std::move(pending));
    AddToCache(address, utxo);
}

std::string FinishSent(std::span<const SpendInput> inputs, std::span<const PayOutput> outputs,
                       const std::string& txid, const Hash160& change_hash) {
    last_broadcast_txid = txid;
    RecordSentTx(inputs, outputs, txid, change_hash);
    return "success: " + txid;
}

// The words of a service that has the transaction, or something like it, already.
bool MayBeKnownText(std::string_view text) {
    return Contains(text, "mempool-conflict") || Contains(text, "txn-already") ||
           Contains(text, "already have");
}

}  // namespace

std::string BroadcastTx(std::span<const SpendInput> inputs, std::span<const PayOutput> outputs,
                        const Hash160& change_hash, std::string& txid_out) {
    txid_out.clear();
    const ByteBuffer raw = SerializeTx(inputs, outputs, /*skeleton=*/false);
    if (raw.empty()) return "error: serialize failed.";
    const std::string own_id = TxidOf(raw);
    txid_out = own_id;
    const std::string hex = HexEncode(raw);
    const std::string body = HexBody("txhex", hex);
    const std::string chain_url = std::string(kChainApiBaseUrl) + "/tx/raw";
    const auto sent_as = [&](const std::string& txid) {
        return FinishSent(inputs, outputs, txid, change_hash);
    };

    if (RelayAccepts(body)) {
        SubmitInBackground(chain_url, body);
        return sent_as(own_id);
    }

    std::string response;
    std::string error;
    if (HttpPostJson(chain_url, body, response, error, kChainTimeout, kChainAttempts, kShortAnswer.bytes)) {
        const std::string candidate = AnsweredId(response);
        if (IsTxidText(candidate)) return sent_as(candidate);
        if (TxVisible(own_id)) return sent_as(own_id);
        return "error: broadcast did not confirm. Wait a few seconds and try again.";
    }
    if (MayBeKnownText(error) && TxVisible(own_id)) return sent_as(own_id);
    std::string arc_error;  // dropped: the caller reads the chain API's words
    if (IsMissingInputsText(error) && ArcSubmit(hex, own_id, arc_error)) return sent_as(own_id);
    return "error: broadcast failed: " + error;
}

bool ArcSubmit(const std::string& hex, const std::string& own_id, std::string& error) {
    error.clear();
    std::string response;
    if (!HttpPostJson(kArcBroadcastUrl, HexBody("rawTx", hex), response, error, kArcTimeout, kArcAttempts,
                      kShortAnswer.bytes)) {
        return false;
    }
    const json answer = ParseForeignJson(response, kShortAnswer);
    std::string status;
    std::string extra_info;
    std::string txid;
    if (!answer.is_object() || !ReadJsonText(answer, "txStatus", status) ||
        !ReadJsonText(answer, "extraInfo", extra_info) || !ReadJsonText(answer, "txid", txid)) {
        error = response.empty() ? "bad arc response" : response;
        return false;
    }
    if (status == "REJECTED" || status == "DOUBLE_SPEND_ATTEMPTED") {
        error = extra_info.empty() ? status : extra_info;
        return false;
    }
    if (IsMissingInputsText(extra_info)) {
        error = extra_info;
        return false;
    }
    if (IsTxidText(txid) || IsTxidText(own_id)) return true;
    error = "arc did not return a txid";
    return false;
}

bool IsMissingInputsText(std::string_view text) {
    return Contains(text, "Missing inputs") || Contains(text, "missing inputs") ||
           Contains(text, "missingorspent");
}

void RecordSentTx(std::span<const SpendInput> inputs, std::span<const PayOutput> outputs,
                  const std::string& txid, const Hash160& change_hash) {
    if (IsTxidText(txid)) last_recorded_txid = txid;
    MarkSpent(inputs);
    PruneCacheOfSpent();
    std::erase_if(pending_outputs, [](const PendingOutput& each) { return IsSpent(each.txid, each.vout); });

    for (std::size_t i = 0; i < outputs.size(); ++i) {
        const PayOutput& output = outputs[i];
        Hash160 hash{};
        if (output.value < 1 || !PaidHash(output.script, hash) || !IsOurHash(hash, inputs, change_hash)) {
            continue;
        }
        const auto vout = static_cast<uint32_t>(i);
        const Utxo outpoint{txid, vout, output.value};
        const bool known =
            std::any_of(pending_outputs.begin(), pending_outputs.end(),
                        [&](const PendingOutput& each) { return SameOutpoint(each, outpoint); });
        if (!known) RememberOwnOutput(MakePending(txid, vout, output.value, hash, inputs));
    }
}

bool IsOurHash(const Hash160& hash, std::span<const SpendInput> inputs, const Hash160& change_hash) {
    if (hash == change_hash) return true;
    const auto owns = [&](const SpendInput& input) { return input.hash == hash; };
    return std::any_of(inputs.begin(), inputs.end(), owns) || AddressPays(wallet_keys.address, hash) ||
           FindOwnedHash(hash) != nullptr;
}

std::string AddressForHash(const Hash160& hash) {
    if (AddressPays(wallet_keys.address, hash)) return wallet_keys.address;
    if (const OwnedAddress* owned = FindOwnedHash(hash)) return owned->address;
    const auto entry = std::find_if(utxo_cache.begin(), utxo_cache.end(), [&](const UtxoCacheEntry& each) {
        return AddressPays(each.address, hash);
    });
    return entry == utxo_cache.end() ? std::string() : entry->address;
}

}  // namespace brickfall
