#include "wallet/store/wallet_paths.h"

#include <algorithm>
#include <cstddef>

#include "base/text.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/store/app_binds.h"
#include "wallet/store/shared_store.h"

namespace brickfall {
namespace {

constexpr std::size_t kMaxCacheIdLength = 80;

}  // namespace

std::string WalletFilePath() {
    const std::string id = WalletId();
    return StoreRoot() + (id.empty() ? "/orvane_pouch.json" : "/wallets/" + id + "/wallet.json");
}

std::string WalletCacheId() {
    std::string name = WalletId();
    if (name.empty()) name = wallet_keys.identity_address;
    if (name.empty()) name = wallet_keys.address;
    for (char& c : name) {
        if (!IsAsciiLetterOrDigit(c)) c = '_';
    }
    if (name.empty()) return "wallet";
    name.resize(std::min(name.size(), kMaxCacheIdLength));
    return name;
}

}  // namespace brickfall
