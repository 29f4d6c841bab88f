// signed_message.h - what a signature in the form of Bitcoin signed messages covers. Pure.
#pragma once

#include <string_view>

#include "wallet/protocol/hashes.h"

namespace brickfall {

inline constexpr char kSignedMessageMagic[] = "Bitcoin Signed Message:\n";

// Double SHA-256 of: the byte 24, the magic, the compact size of the text, the text.
Hash256 SignedMessageDigest(std::string_view text);

}  // namespace brickfall
