#include "messages/signing.h"

#include <mutex>
#include <nlohmann/json.hpp>

#include "base/clock.h"
#include "deployment/deployment.h"
#include "messages/row.h"
#include "messages/verification.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/link/paymail_sync.h"
#include "wallet/session/identity_signature.h"
#include "wallet/session/wallet_session.h"

namespace brickfall {
namespace {

// What a web row must not carry when it is signed, though a general row may.
constexpr const char* kNotInWebRows[] = {"actor",    "paymail",  "ts",        "protocol",
                                         "location", "channel",  "site_addr", "site_sats",
                                         "fee_addr", "fee_sats", "pubkey",    "sig"};

constexpr std::size_t kPublicKeyDigits = 66;
constexpr std::size_t kSignatureCharacters = 88;  // base64 of 64 bytes

std::string WalletHandle() {
    const std::lock_guard lock(wallet_mutex);
    if (!LoadWallet()) return {};
    PaymailSync(/*announce=*/false);
    return wallet_keys.paymail;
}

void StampGeneral(nlohmann::json& row, const std::string& handle, const std::string& paymail) {
    row["actor"] = handle;
    if (!paymail.empty()) row["paymail"] = paymail;
    // The time is signed: a caller that wants a particular one has set it.
    const auto ts = row.find("ts");
    if (ts == row.end() || !ts->is_number()) row["ts"] = UnixSeconds();
}

void StampSignature(nlohmann::json& row, const std::string& public_key, const std::string& signature) {
    row["pubkey"] = public_key;
    row["sig"] = signature;
}

void StampWeb(nlohmann::json& row, const std::string& handle) {
    row["handle"] = handle;
    for (const char* const key : kNotInWebRows) row.erase(key);
}

}  // namespace

bool SignMessage(nlohmann::json& row, std::string& error) {
    error.clear();
    if (row.is_null()) row = nlohmann::json::object();  // as yet without a field
    if (!row.is_object()) return false;
    const std::string type = JsonString(row, "type");
    const std::string handle = WalletHandle();
    if (handle.empty()) {
        error = "Connect Pouch";
        return false;
    }
    if (type == "web_gate" || type == "n_button") {
        StampWeb(row, handle);
    } else {
        StampGeneral(row, handle, PublishedHandle());
    }
    std::string public_key;
    std::string signature;
    if (!SignIdentityMessage(CanonicalMessage(row), public_key, signature, error)) return false;
    StampSignature(row, public_key, signature);
    // A row that the family's service would not vouch for never reaches the chain.
    if (VerifyMessage(row)) return true;
    error = std::string("identity signature did not verify against ") + kPaymailDomain + " PKI";
    return false;
}

std::size_t SignedRowSize(nlohmann::json row, const std::string& handle, const std::string& paymail) {
    StampGeneral(row, handle, paymail);
    StampSignature(row, std::string(kPublicKeyDigits, '0'), std::string(kSignatureCharacters, '0'));
    return DumpRow(row).size();
}

}  // namespace brickfall
