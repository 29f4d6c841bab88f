// verification.h - whether a row was signed by the paymail identity that it names. A bare yes or no; nothing
// throws. The key cache has a lock of its own, a leaf; any thread.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <string_view>

#include "wallet/protocol/encodings.h"

namespace brickfall {

inline constexpr int64_t kIdentityKeyTtl = 1'800;  // seconds

bool VerifyMessage(const nlohmann::json& row);  // may block for a key look-up of up to 15 s
bool VerifyCompactSignature(std::string_view text, std::string_view public_key_hex,
                            std::string_view signature_base64);
std::string LookupIdentityKey(std::string_view handle, std::string_view paymail);
std::string CanonicalPublicKey(std::span<const uint8_t> key_bytes);
bool DecodeKeyHex(std::string_view text, ByteBuffer& bytes);
void ClearIdentityKeyCache();  // tests only

}  // namespace brickfall
