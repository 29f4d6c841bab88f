#include "wallet/link/status_refresh.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "base/clock.h"
#include "base/text.h"
#include "deployment/deployment.h"
#include "net/http_client.h"
#include "net/url_text.h"
#include "wallet/coins/balance_cache.h"
#include "wallet/coins/ordinal_guard.h"
#include "wallet/coins/utxo_cache.h"
#include "wallet/json/json_numbers.h"
#include "wallet/keys/key_derivation.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/link/connect_handshake.h"
#include "wallet/session/identity_signature.h"
#include "wallet/store/app_binds.h"
#include "wallet/store/paymail_registry.h"
#include "wallet/store/shared_store.h"

namespace brickfall {

std::atomic<bool>& balance_busy = *new std::atomic<bool>(false);

namespace {

using nlohmann::json;

constexpr int kClaimTimeoutSeconds = 25;
constexpr int kClaimAttempts = 4;

// What the host was last told with success. It survives a change of wallet, and each start tells it once.
std::mutex& claim_mutex = *new std::mutex;
std::string& last_claim_key = *new std::string;  // guarded by claim_mutex

// What a claim tells, copied out of the wallet before its lock is given up.
struct ClaimFields {
    std::string alias;
    std::string public_hex;
    std::string address;
    std::string avatar;
    std::string ord_address;
};

std::string FullHandle(const std::string& name) { return name + "@" + kPaymailDomain; }

void EmitPaymailEvent() {
    if (wallet_keys.paymail.empty()) {
        EmitWalletEvent("paymail");
    } else {
        EmitWalletEvent("paymail", {FullHandle(wallet_keys.paymail)});
    }
}

void SyncNameAndAvatar() {
    ReloadWalletHints();
    PaymailSync(/*announce=*/true);
    if (!wallet_keys.identity_pub.empty()) SyncAvatar();
}

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

// The addresses whose outputs or ordinals must be read anew.
std::vector<AddressRefresh> StaleAddresses(const std::vector<std::string>& addresses, bool outage) {
    std::vector<AddressRefresh> records;
    for (const std::string& address : addresses) {
        if (IsCacheFresh(address) && (outage || HasFreshGuard(address))) continue;
        records.emplace_back().address = address;
    }
    return records;
}

bool AnyOutputsKnown(const std::vector<std::string>& addresses, const std::vector<AddressRefresh>& records) {
    return std::ranges::any_of(records, &AddressRefresh::ok) ||
           std::ranges::any_of(addresses, [](const std::string& address) {
               const UtxoCacheEntry* entry = FindCacheEntry(address);
               return entry != nullptr && entry->valid;
           });
}

}  // namespace

std::string NormalizePaymailHandle(std::string_view text) {
    text = StripBack(StripFront(text, "@$ "), " \r\n");
    return Lower(text.substr(0, text.find('@')));
}

void PaymailSync(bool announce) {
    WalletKeys& keys = wallet_keys;
    if (!keys.is_hd || keys.identity_pub.empty()) return;
    keys.paymail = NormalizePaymailHandle(keys.paymail);
    const bool was_nameless = keys.paymail.empty();
    if (was_nameless) keys.paymail = FindNameForPubkey(keys.identity_pub);
    ShowWallet();
    if (keys.paymail.empty()) return;
    // A name that the registry refuses stays in the wallet all the same.
    RegisterPaymail(keys.paymail, keys.identity_pub, keys.address);
    SetWalletName(WalletId(), keys.paymail);
    if (!was_nameless) return;
    SaveWallet();
    if (announce) EmitPaymailEvent();
}

void PublishWalletState() {
    SyncNameAndAvatar();
    EmitPaymailEvent();
}

std::string PublishedHandle() {
    const WalletLock lock(wallet_mutex);
    if (!LoadWallet()) return {};
    PaymailSync(/*announce=*/false);
    return wallet_keys.paymail.empty() ? std::string() : FullHandle(wallet_keys.paymail);
}

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

StatusResult StatusRefresh() {
    StatusResult result;
    WalletLock lock(wallet_mutex);
    if (!LoadWallet()) {
        EmitWalletEvent("status");
        EmitWalletEvent("paymail");
        return result;
    }
    SyncNameAndAvatar();
    const std::string cache_id = WalletCacheId();
    if (!ListOwnedAddresses(lock) || WalletCacheId() != cache_id) return result;
    std::vector<std::string> addresses;
    WalletAddresses(addresses);
    const bool outage = OrdinalsOutageRunning();
    std::vector<AddressRefresh> records = StaleAddresses(addresses, outage);
    const ClaimFields claim = {wallet_keys.paymail, wallet_keys.identity_pub, wallet_keys.address,
                               wallet_keys.ord_avatar, DeriveOrdAddress()};
    lock.unlock();
    FetchRefreshRecords(records, outage ? OrdinalScans::kNone : OrdinalScans::kAll);
    lock.lock();
    // Another wallet was connected, or this one let go, while the answers came in.
    if (WalletCacheId() != cache_id) return result;

    ApplyRefresh(records);
    result.chain_ok = AnyOutputsKnown(addresses, records);
    result.balance = ReadBalance();
    const std::string shown =
        result.chain_ok ? std::to_string(std::max<int64_t>(result.balance, 0)) : std::string("-");
    EmitWalletEvent("status", {wallet_keys.address, shown, wallet_keys.is_hd ? "hd" : "legacy"});
    EmitPaymailEvent();
    lock.unlock();

    ClaimIfChanged(claim.alias, claim.public_hex, claim.address, claim.avatar, claim.ord_address);
    RefreshQuotaRole();
    return result;
}

void BalanceWorker(const std::function<void(const StatusResult&)>& post) {
    StatusResult result;
    try {
        result = StatusRefresh();
    } catch (const std::bad_alloc&) {
        // As when no service answers: the next refresh tries again.
    }
    if (post) post(result);
    balance_busy.store(false);
}

}  // namespace brickfall
