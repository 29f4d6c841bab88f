#include "wallet/payment/broadcast.h"

#include <exception>
#include <nlohmann/json.hpp>

#include "base/foreign_json.h"
#include "base/text.h"
#include "base/workers.h"
#include "deployment/deployment.h"
#include "net/answer_limits.h"
#include "net/http_client.h"
#include "wallet/chain/chain_api.h"
#include "wallet/coins/own_transactions.h"
#include "wallet/json/json_numbers.h"
#include "wallet/protocol/encodings.h"

namespace brickfall {
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

}  // namespace brickfall
