// test_key.h - the keys of the people whom the sandbox plays: made from their names, so they are no secrets,
// and the signatures that they give. Pure functions; any thread.
#pragma once

#include <string>
#include <string_view>

#include "sandbox/server/bytes.h"

namespace brickfall::sandbox {

struct TestKey {
    Digest number{};   // the private key
    Bytes public_key;  // compressed; empty when the crypto library fails
    KeyHash hash{};
};

TestKey TestKeyOf(std::string_view name);

// DER with the low s that the chain asks for; empty on failure.
Bytes SignDigest(const TestKey& key, const Digest& digest);

// The base64 of r and s over a text in the form of Bitcoin signed messages; empty on failure.
std::string SignText(const TestKey& key, std::string_view text);

}  // namespace brickfall::sandbox
