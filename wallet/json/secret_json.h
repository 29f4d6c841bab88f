// secret_json.h - reads a JSON text some of whose strings are secrets. The JSON library keeps every token
// that it reads in memory that it does not wipe, so the secrets are taken out and blanked before it sees the
// text. Pure functions; any thread.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <string_view>

#include "base/secret.h"

namespace brickfall {

// A member of the outermost object whose string value is a secret.
struct SecretMember {
    std::string_view key;
    SecretString value;  // filled when the document holds a string at the key, else empty
};

// The document, with every letter and digit of the secrets replaced, so that it still tells that there was a
// string; of no type when the text does not parse or goes beyond kStoreLimits. `text` is left with the
// secrets blanked. A string at or below such a key anywhere else in the text is blanked too, and not taken.
nlohmann::json ParseWithSecrets(SecretString& text, std::span<SecretMember> secrets);

// Puts the secret, as a JSON string, in the place of the one `"key": ""` of a text that the JSON library
// wrote with an indent.
SecretString InsertSecret(std::string_view text, std::string_view key, std::string_view secret);

}  // namespace brickfall
