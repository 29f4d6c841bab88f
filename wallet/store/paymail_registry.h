// paymail_registry.h - the names that this machine has seen, under which identity. A local view in a file of
// the store, read, changed and written under the store's lock; one that is there and cannot be read is left
// as it is. paymail_mutex guards the document; it is taken below wallet_mutex and the store's lock, never the
// other way.
#pragma once

#include <string>
#include <string_view>

namespace brickfall {

std::string SanitizePaymailName(std::string_view text);
int QuotaForRole(std::string_view role);  // labels an identity may have, -1 for no limit
bool LooksLikeAddress(std::string_view text);

std::string FindNameForPubkey(std::string_view public_hex);
std::string RegisterPaymail(std::string_view name, std::string_view public_hex, std::string_view address);
void SetHostRole(std::string_view role);
void SetOrdAddress(
    std::string_view ord_address);  // reads wallet_keys.identity_pub; caller holds wallet_mutex
std::string SyncAvatar();           // reads identity_pub and ord_avatar; caller holds wallet_mutex

}  // namespace brickfall
