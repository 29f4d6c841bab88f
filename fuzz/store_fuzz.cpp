// The same bytes as each of the small files that another program may write into the shared store, the list of
// wallets, the file of names, a bind and a connect reply, and as a paymail name.
#include <vector>

#include "fuzz/support.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/link/connect_handshake.h"
#include "wallet/store/app_binds.h"
#include "wallet/store/paymail_registry.h"
#include "wallet/store/shared_store.h"

namespace {

using namespace brickfall;

constexpr char kKey[] = "02ad";
constexpr char kAddress[] = "1BoatSLRHtKNngkdXEeobR76b53LETtpyT";

void CheckRegistry() {
    const StoreLock lock;
    const StoreFile file = ReadRegistry();
    const nlohmann::json& registry = file.document;
    Require(registry.is_object() && registry.at("wallets").is_array());
    const std::vector<WalletInfo> wallets = ListWallets();
    for (const WalletInfo& wallet : wallets) Require(!wallet.id.empty() && !wallet.name.empty());
    Require(wallets.empty() || WalletDisplayName(wallets.front().id) == wallets.front().name);
    // A rewrite loses nothing.
    Require(WriteRegistry(registry) == (file.state == FileState::kRead));
    Require(ReadRegistry().document == registry);
}

void CheckNames(const std::string& file, std::string_view bytes) {
    const std::string name = SanitizePaymailName(bytes);
    Require(SanitizePaymailName(name) == name);
    Require(ReplaceFile(file, bytes, Flush::kLater));
    const std::string found = FindNameForPubkey(kKey);
    Require(SanitizePaymailName(found) == found);
    if (RegisterPaymail("ada", kKey, kAddress).empty()) {
        Require(FindNameForPubkey(kKey) == "ada");
    } else {
        Require(ReadFile(file) == bytes);
    }

    Require(ReplaceFile(file, bytes, Flush::kLater));
    if (ReadStoreFile(file).state == FileState::kUnreadable) return;
    wallet_keys.identity_pub = kKey;
    wallet_keys.ord_avatar = "avatar_0";
    SetOrdAddress(kAddress);
    SetHostRole("dev");
    Require(SyncAvatar().empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const CostBound cost(800'000, size, 1'500);  // with secrets, in a sanitizer build
    static const FuzzStore store("/connect");
    const std::string root = store.Path() + "/Orvane";
    const std::string_view bytes = AsText(data, size);

    Require(ReplaceFile(root + "/wallets.json", bytes, Flush::kLater));
    CheckRegistry();
    CheckNames(root + "/orvane_paymail.json", bytes);

    BindAtStart("/fuzz", "Fuzz");
    Require(ReplaceFile(BindFilePath(), bytes, Flush::kLater));
    const std::string bound = BoundWalletId();
    BindAtStart("/fuzz", "Fuzz");
    Require(bound.empty() || WalletId() == bound);

    Require(ReplaceFile(root + "/connect/w1.rep.json", bytes, Flush::kLater));
    ClearBind();
    const std::string reply = ReadConnectReply("w1");
    Require(reply == "ok" || reply == "denied");
    Require(WalletId().empty() || (reply == "ok" && BoundWalletId() == WalletId()));
    ClearBind();
    return 0;
}
