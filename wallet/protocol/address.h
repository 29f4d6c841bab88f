// address.h - Base58Check addresses, and the step from a private key to a public key and an address. Pure
// functions; any thread.
#pragma once

#include <string>
#include <string_view>

#include "wallet/protocol/hashes.h"

namespace brickfall {

inline constexpr char kBase58Alphabet[] = "123456789ABCDEFGHJKLMNPQRSTUVWXYZabcdefghijkmnopqrstuvwxyz";

// The SEC compressed public key (66 lower-case hex digits) of a private key (64 hex digits, big-endian).
// False and empty text when the text is no 32 bytes or the scalar is not in the group's range.
bool PublicKeyFromPrivate(std::string_view private_hex, std::string& public_hex);

// The address of a compressed public key; empty text unless it decodes to exactly 33 bytes.
std::string AddressFromPublicKey(std::string_view public_hex);

std::string Base58CheckEncode(const Hash160& hash);           // version byte 0, P2PKH on the main chain
bool DecodeAddress(std::string_view address, Hash160& hash);  // the only road from address text to a hash

}  // namespace brickfall
