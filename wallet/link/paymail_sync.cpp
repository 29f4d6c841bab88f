#include "wallet/link/paymail_sync.h"

#include "base/text.h"
#include "deployment/deployment.h"
#include "wallet/events/wallet_events.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/app_binds.h"
#include "wallet/store/paymail_registry.h"
#include "wallet/store/shared_store.h"
#include "wallet/store/wallet_file.h"

namespace brickfall {
namespace {

std::string FullHandle(const std::string& name) { return name + "@" + kPaymailDomain; }

}  // namespace

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

}  // namespace brickfall
