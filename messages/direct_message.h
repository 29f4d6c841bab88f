// direct_message.h - seals a text for one recipient, and keeps the public keys that texts are sealed to.
// The text is enciphered once, under a key of its own; that key is sealed to the recipient and to the sender,
// so that each of the two can open the message. Nothing here opens one. Two locks, taken in this order: the
// own key pair's, which is held while the wallet's is taken, and the key folder's, a leaf. Nothing throws;
// any thread.
#pragma once

#include <array>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <string_view>

#include "base/secret.h"

namespace brickfall {

using MessageParts = std::array<std::string, 8>;  // any bytes; the first empty part ends the message

// Adds the sealed parts and what opens them to `row`. On false `error` says why, and the row is to be
// dropped.
bool EncryptDirectMessage(const MessageParts& parts, std::string_view my_handle, std::string_view to_handle,
                          nlohmann::json& row, std::string& error);

// The encryption key pair of the wallet; derived once for a handle, then kept in memory.
bool LoadEncryptionKeys(std::string& public_hex, SecretString& private_hex, std::string& error);

// Puts a key that was good at `ts` (Unix seconds) into memory and into the key folder, below the working
// folder. A key that is known to be newer stays.
void StoreEncryptionKey(std::string_view handle, std::string_view public_key, int64_t ts);

// The newest key of a handle, with its file read afresh; empty when there is none.
std::string FindEncryptionKey(std::string_view handle);

// 33 bytes as 66 lower-case digits; empty when the text is no such key. White space and "0x" count nothing.
std::string CanonicalEncryptionKey(std::string_view text);

// BIE1: "BIE1", an ephemeral public key, the data under AES-128-CBC, and the authentication code over the
// three, as hex. The key text may hold 33 or 65 bytes. False and empty text on any failure.
bool SealToKey(std::span<const uint8_t> data, std::string_view public_key_hex, std::string& sealed_hex);

// A fresh initialisation vector and the text under AES-256-CBC, as hex; empty on failure.
std::string EncryptPart(std::string_view text, std::span<const uint8_t, 32> content_key);

void ClearEncryptionKeys();  // tests only: forgets the own pair and every key in memory

}  // namespace brickfall
