#include "wallet/link/paymail_host.h"

#include <cstdint>
#include <mutex>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/clock.h"
#include "base/foreign_json.h"
#include "base/text.h"
#include "deployment/deployment.h"
#include "net/answer_limits.h"
#include "net/http_client.h"
#include "net/url_text.h"
#include "wallet/json/store_json.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/link/paymail_sync.h"
#include "wallet/session/identity_signature.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/paymail_registry.h"

namespace brickfall {
namespace {

using nlohmann::json;

constexpr int kClaimTimeoutSeconds = 25;
constexpr int kClaimAttempts = 4;

// What the host was last told with success. It survives a change of wallet, and each start tells it once.
std::mutex& claim_mutex = *new std::mutex;
std::string& last_claim_key = *new std::string;  // guarded by claim_mutex

std::string ClaimText(const ClaimFields& claim, const std::string& ts) {
    std::string text = "OV-PAYMAIL-CLAIM|" + claim.alias + "|" + claim.public_hex + "|" + claim.address +
                       "|" + claim.avatar + "|";
    if (!claim.ord_address.empty()) text += claim.ord_address + "|";
    return text + ts;
}

std::string ClaimBody(const ClaimFields& claim, int64_t ts, const std::string& signature) {
    json body = {{"alias", claim.alias},
                 {"pubkey", claim.public_hex},
                 {"address", claim.address},
                 {"avatar", claim.avatar},
                 {"ts", ts},
                 {"sig", signature}};
    if (!claim.ord_address.empty()) body["ordAddress"] = claim.ord_address;
    return body.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace

std::string ClaimPaymail(std::string_view alias, std::string_view public_hex, std::string_view address,
                         std::string_view avatar, std::string_view ord_address) {
    const ClaimFields claim = {NormalizePaymailHandle(alias), Lower(public_hex), std::string(address),
                               std::string(avatar), std::string(ord_address)};
    if (claim.alias.empty() || claim.public_hex.empty()) return "need alias and pubkey";
    const int64_t ts = UnixSeconds();

    std::string signer;
    std::string signature;
    std::string error;
    if (!SignIdentityMessage(ClaimText(claim, std::to_string(ts)), signer, signature, error)) {
        return error.empty() ? "could not sign paymail claim" : error;
    }
    signer = Lower(signer);
    if (!signer.empty() && signer != claim.public_hex) return "identity pubkey mismatch";

    std::string response;
    if (HttpPostJson(std::string(kApiBaseUrl) + "/api/paymail/claim", ClaimBody(claim, ts, signature),
                     response, error, kClaimTimeoutSeconds, kClaimAttempts, kShortAnswer.bytes)) {
        return {};
    }
    if (std::string reason = StoreText(ParseForeignJson(response, kShortAnswer), "error"); !reason.empty())
        return reason;
    return error.empty() ? "paymail host refused" : error;
}

void ClaimIfChanged(std::string_view alias, std::string_view public_hex, std::string_view address,
                    std::string_view avatar, std::string_view ord_address) {
    if (alias.empty() || public_hex.empty()) return;
    std::string claim_key(alias);
    for (const std::string_view part : {address, ord_address, avatar}) {
        claim_key += '|';
        claim_key += part;
    }
    {
        const std::lock_guard lock(claim_mutex);
        if (claim_key == last_claim_key) return;
    }
    // A claim that fails is tried again at the next refresh.
    if (!ClaimPaymail(alias, public_hex, address, avatar, ord_address).empty()) return;
    const std::lock_guard lock(claim_mutex);
    last_claim_key = std::move(claim_key);
}

void RefreshQuotaRole() {
    std::string key;
    {
        const WalletLock lock(wallet_mutex);
        if (!LoadWallet()) return;
        key = Lower(wallet_keys.identity_pub);
    }
    std::string body;
    std::string error;
    const auto url = UrlWithName(std::string(kApiBaseUrl) + "/api/paymail/quota/", key);
    if (!url || !HttpGetOnce(*url, body, error, kShortAnswer.bytes)) return;
    const json answer = ParseForeignJson(body, kShortAnswer);
    if (answer.is_object()) SetHostRole(StoreText(answer, "role"));
}

}  // namespace brickfall
