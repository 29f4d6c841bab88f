// The same bytes as each of the small files that another program may write into the shared store: the list of
// wallets, a bind and a connect reply.
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "base/files.h"
#include "fuzz/support.h"
#include "wallet/link/connect_handshake.h"
#include "wallet/store/app_binds.h"
#include "wallet/store/shared_store.h"

namespace {

using namespace brickfall;

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static const FuzzStore store("/connect");
    const std::string root = store.Path() + "/Orvane";
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);

    Require(ReplaceFile(root + "/wallets.json", bytes, Flush::kLater));
    CheckRegistry();

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
