// identity_signature.h - signs text with the wallet's identity key, in the form of Bitcoin signed messages.
#pragma once

#include <string>
#include <string_view>

#include "wallet/protocol/hashes.h"

namespace brickfall {

inline constexpr char kSignedMessageMagic[] = "Bitcoin Signed Message:\n";

// Double SHA-256 of: the byte 24, the magic, the compact size of the text, the text.
Hash256 SignedMessageDigest(std::string_view text);

// The identity public key (66 hex digits) and the padded base64 of r and s, 32 big-endian bytes each, low s.
// On false `error` says why. Takes wallet_mutex; may be called with it held.
bool SignIdentityMessage(std::string_view text, std::string& public_hex, std::string& signature,
                         std::string& error);

}  // namespace brickfall
