// identity_signature.h - signs text with the wallet's identity key, in the form of Bitcoin signed messages.
#pragma once

#include <string>
#include <string_view>

namespace brickfall {

// The identity public key (66 hex digits) and the padded base64 of r and s, 32 big-endian bytes each, low s.
// On false `error` says why. Takes wallet_mutex; may be called with it held.
bool SignIdentityMessage(std::string_view text, std::string& public_hex, std::string& signature,
                         std::string& error);

}  // namespace brickfall
