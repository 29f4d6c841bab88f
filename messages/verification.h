// verification.h - whether a row was signed by the paymail identity that it names. A bare yes or no; nothing
// throws. The key cache has a lock of its own, a leaf; any thread.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <string_view>

#include "net/http_client.h"
#include "wallet/protocol/encodings.h"

namespace brickfall {

inline constexpr int64_t kIdentityKeyTtl = 1'800;  // seconds

bool VerifyMessage(const nlohmann::json& row);  // may block for a key look-up of up to 15 s
bool VerifyCompactSignature(std::string_view text, std::string_view public_key_hex,
                            std::string_view signature_base64);
std::string LookupIdentityKey(std::string_view handle, std::string_view paymail);

// The parts of VerifyMessage for a row of any type but the web's, each with its reason.
struct SignedMessage {
    const char* fault = nullptr;  // why such a row is refused before any key is looked at, else nullptr
    std::string text;             // what is signed
    std::string actor;            // the signer's name, as written
    std::string paymail;
    std::string public_key;  // as written
    std::string signature;   // base64
};

SignedMessage ReadSignedMessage(const nlohmann::json& row);

// name@domain in lower case, as the paymail host knows the signer of a row. Empty when it can know none: no
// name, one that is no name, or the same name at a foreign domain.
std::string IdentityName(std::string_view handle, std::string_view paymail);

struct IdentityAnswer {
    LookUp state = LookUp::kFailed;
    std::string public_key;  // 66 lower-case hex digits, of kFound alone
    std::string error;       // of kFailed alone
};

// Asks the paymail host for the key of a name that IdentityName gave. Blocks; keeps nothing.
IdentityAnswer AskIdentityKey(const std::string& identity_name);

std::string CanonicalPublicKey(std::span<const uint8_t> key_bytes);
bool DecodeKeyHex(std::string_view text, ByteBuffer& bytes);
void ClearIdentityKeyCache();  // tests only

}  // namespace brickfall
