// paymail_host.h - claims the wallet's name on the paymail host, signed by its identity key, and reads its
// role there.
#pragma once

#include <string>
#include <string_view>

namespace brickfall {

// What a claim tells, copied out of the wallet before its lock is given up.
struct ClaimFields {
    std::string alias;
    std::string public_hex;
    std::string address;
    std::string avatar;
    std::string ord_address;
};

// These take wallet_mutex and release it. It must not be held across the two claims.
std::string ClaimPaymail(std::string_view alias, std::string_view public_hex, std::string_view address,
                         std::string_view avatar, std::string_view ord_address);
void ClaimIfChanged(std::string_view alias, std::string_view public_hex, std::string_view address,
                    std::string_view avatar, std::string_view ord_address);
void RefreshQuotaRole();

}  // namespace brickfall
