// script_check.h - decides whether an input may spend a P2PKH output: the form of its unlocking script, the
// key, and the signature over the fork-id digest. Also the check of signed text. Pure functions; any thread.
#pragma once

#include <cstdint>
#include <string_view>

#include "sandbox/server/bytes.h"
#include "sandbox/server/raw_transaction.h"

namespace brickfall::sandbox {

enum class ScriptFault {
    kNone,
    kForeignOutput,   // the output is no P2PKH output; this chain spends no other
    kNotTwoPushes,    // the unlocking script is not exactly a signature and a key, in minimal pushes
    kWrongHashType,   // anything but 0x41: all inputs and outputs, with the fork id
    kBadDer,          // not the strict DER of BIP66
    kHighS,           // s in the upper half of the order
    kBadKeyEncoding,  // no public key of SEC 1
    kWrongKey,        // a key that does not hash to the output's hash
    kBadSignature,    // does not verify
};

const char* ScriptFaultText(ScriptFault fault);

// What all inputs of a transaction share in their digests (BIP143).
struct SharedDigests {
    Digest outpoints{};
    Digest sequences{};
    Digest outputs{};
};
SharedDigests DigestsOf(const ParsedTx& tx);

inline constexpr uint8_t kHashTypeAllForkId = 0x41;  // the only one that is taken here

// The digest of BIP143 of one input. It holds for hash types that cover all inputs and outputs.
Digest SignatureDigest(const ParsedTx& tx, std::size_t input, const SharedDigests& shared,
                       ByteView script_code, int64_t value, uint32_t hash_type);

ScriptFault CheckInput(const ParsedTx& tx, std::size_t input, const SharedDigests& shared, ByteView locking,
                       int64_t value);

// True when `public_key` is a point of secp256k1 in one of the forms of SEC 1.
bool IsPublicKey(ByteView public_key);

// What is signed of a text in the form of Bitcoin signed messages.
Digest SignedTextDigest(std::string_view text);

// A signature of r and s, 32 big-endian bytes each, over a text in the form of Bitcoin signed messages.
bool VerifySignedText(std::string_view text, ByteView public_key, ByteView signature);

}  // namespace brickfall::sandbox
