// encryption_key.h - the key pair that messages to the wallet are sealed for.
#pragma once

#include <string>

#include "base/secret.h"

namespace brickfall {

// Takes wallet_mutex and loads the wallet. On false `error` says why.
bool DeriveEncryptionKey(std::string& public_hex, SecretString& private_hex, std::string& error);

}  // namespace brickfall
