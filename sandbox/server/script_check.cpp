#include "sandbox/server/script_check.h"

#include <openssl/obj_mac.h>

#include <algorithm>
#include <optional>
#include <string>

#include "sandbox/server/curve_ptr.h"

namespace brickfall::sandbox {
namespace {

constexpr uint8_t kOpPushData1 = 0x4c;

KeyPtr DecodeKey(ByteView bytes) {
    const bool compressed = bytes.size() == 33 && (bytes[0] == 2 || bytes[0] == 3);
    const bool whole = bytes.size() == 65 && bytes[0] == 4;
    if (!compressed && !whole) return nullptr;
    KeyPtr key(EC_KEY_new_by_curve_name(NID_secp256k1));
    if (!key || EC_KEY_oct2key(key.get(), bytes.data(), bytes.size(), nullptr) != 1) return nullptr;
    return key;
}

// BIP66: one encoding for each pair of numbers, none negative, none padded.
bool IsStrictDer(ByteView der) {
    if (der.size() < 8 || der.size() > 72) return false;
    if (der[0] != 0x30 || der[1] != der.size() - 2) return false;
    const auto integer_ends_at = [&der](std::size_t at) -> std::size_t {
        if (at + 2 > der.size() || der[at] != 0x02) return 0;
        const std::size_t length = der[at + 1];
        const std::size_t first = at + 2;
        if (length == 0 || first + length > der.size()) return 0;
        if ((der[first] & 0x80) != 0) return 0;
        if (length > 1 && der[first] == 0 && (der[first + 1] & 0x80) == 0) return 0;
        return first + length;
    };
    const std::size_t middle = integer_ends_at(2);
    return middle != 0 && integer_ends_at(middle) == der.size();
}

bool IsLowS(const ECDSA_SIG* signature) {
    const KeyPtr curve(EC_KEY_new_by_curve_name(NID_secp256k1));
    const BignumPtr half(BN_new());
    if (!curve || !half) return false;
    if (BN_rshift1(half.get(), EC_GROUP_get0_order(EC_KEY_get0_group(curve.get()))) != 1) return false;
    return BN_cmp(ECDSA_SIG_get0_s(signature), half.get()) <= 0;
}

struct Unlocking {
    ByteView signature;  // DER, without the hash type
    uint8_t hash_type = 0;
    ByteView key;
};

// Takes one minimal push of up to 75 bytes off the front.
std::optional<ByteView> TakePush(ByteView& script) {
    if (script.empty()) return std::nullopt;
    const uint8_t length = script[0];
    if (length == 0 || length >= kOpPushData1 || script.size() < 1U + length) return std::nullopt;
    const ByteView data = script.subspan(1, length);
    script = script.subspan(1U + length);
    return data;
}

std::optional<Unlocking> ReadUnlocking(ByteView script) {
    const std::optional<ByteView> signature = TakePush(script);
    const std::optional<ByteView> key = signature ? TakePush(script) : std::nullopt;
    if (!key || !script.empty()) return std::nullopt;
    return Unlocking{signature->first(signature->size() - 1), signature->back(), *key};
}

}  // namespace

const char* ScriptFaultText(ScriptFault fault) {
    switch (fault) {
        case ScriptFault::kNone:
            return "No error";
        case ScriptFault::kForeignOutput:
            return "Script evaluated without error but finished with a false/empty top stack element";
        case ScriptFault::kNotTwoPushes:
            return "Operation not valid with the current stack size";
        case ScriptFault::kWrongHashType:
            return "Signature hash type missing or not understood";
        case ScriptFault::kBadDer:
            return "Non-canonical DER signature";
        case ScriptFault::kHighS:
            return "Non-canonical signature: S value is unnecessarily high";
        case ScriptFault::kBadKeyEncoding:
            return "Public key is neither compressed or uncompressed";
        case ScriptFault::kWrongKey:
            return "Script failed an OP_EQUALVERIFY operation";
        case ScriptFault::kBadSignature:
            return "Signature must be zero for failed CHECK(MULTI)SIG operation";
    }
    return "";
}

SharedDigests DigestsOf(const ParsedTx& tx) {
    Bytes outpoints;
    Bytes sequences;
    Bytes outputs;
    for (const TxInput& input : tx.inputs) {
        PutBytes(outpoints, input.spent.id);
        PutU32(outpoints, input.spent.index);
        PutU32(sequences, input.sequence);
    }
    for (const TxOutput& output : tx.outputs) {
        PutU64(outputs, static_cast<uint64_t>(output.value));
        PutCompactSize(outputs, output.locking.size());
        PutBytes(outputs, output.locking);
    }
    return {DoubleSha256(outpoints), DoubleSha256(sequences), DoubleSha256(outputs)};
}

Digest SignatureDigest(const ParsedTx& tx, std::size_t input, const SharedDigests& shared,
                       ByteView script_code, int64_t value, uint32_t hash_type) {
    const TxInput& signed_input = tx.inputs[input];
    Bytes preimage;
    PutU32(preimage, tx.version);
    PutBytes(preimage, shared.outpoints);
    PutBytes(preimage, shared.sequences);
    PutBytes(preimage, signed_input.spent.id);
    PutU32(preimage, signed_input.spent.index);
    PutCompactSize(preimage, script_code.size());
    PutBytes(preimage, script_code);
    PutU64(preimage, static_cast<uint64_t>(value));
    PutU32(preimage, signed_input.sequence);
    PutBytes(preimage, shared.outputs);
    PutU32(preimage, tx.lock_time);
    PutU32(preimage, hash_type);
    return DoubleSha256(preimage);
}

ScriptFault CheckInput(const ParsedTx& tx, std::size_t input, const SharedDigests& shared, ByteView locking,
                       int64_t value) {
    const std::optional<KeyHash> owner = PaidKeyHash(locking);
    if (!owner) return ScriptFault::kForeignOutput;
    const std::optional<Unlocking> unlocking = ReadUnlocking(tx.inputs[input].unlocking);
    if (!unlocking) return ScriptFault::kNotTwoPushes;
    if (HashOfKey(unlocking->key) != *owner) return ScriptFault::kWrongKey;
    if (!IsStrictDer(unlocking->signature)) return ScriptFault::kBadDer;
    const uint8_t* der = unlocking->signature.data();
    const SignaturePtr signature(
        d2i_ECDSA_SIG(nullptr, &der, static_cast<long>(unlocking->signature.size())));
    if (!signature) return ScriptFault::kBadDer;
    if (!IsLowS(signature.get())) return ScriptFault::kHighS;
    if (unlocking->hash_type != kHashTypeAllForkId) return ScriptFault::kWrongHashType;
    const KeyPtr key = DecodeKey(unlocking->key);
    if (!key) return ScriptFault::kBadKeyEncoding;
    const Digest digest = SignatureDigest(tx, input, shared, locking, value, kHashTypeAllForkId);
    const bool good =
        ECDSA_do_verify(digest.data(), static_cast<int>(digest.size()), signature.get(), key.get()) == 1;
    return good ? ScriptFault::kNone : ScriptFault::kBadSignature;
}

bool IsPublicKey(ByteView public_key) { return DecodeKey(public_key) != nullptr; }

Digest SignedTextDigest(std::string_view text) {
    constexpr std::string_view kMagic = "Bitcoin Signed Message:\n";
    Bytes message;
    PutCompactSize(message, kMagic.size());
    PutBytes(message, ViewOf(kMagic));
    PutCompactSize(message, text.size());
    PutBytes(message, ViewOf(text));
    return DoubleSha256(message);
}

bool VerifySignedText(std::string_view text, ByteView public_key, ByteView signature) {
    const KeyPtr key = DecodeKey(public_key);
    if (!key || signature.size() != 64) return false;
    const Digest digest = SignedTextDigest(text);

    const SignaturePtr pair(ECDSA_SIG_new());
    BignumPtr r(BN_bin2bn(signature.data(), 32, nullptr));
    BignumPtr s(BN_bin2bn(signature.data() + 32, 32, nullptr));
    if (!pair || !r || !s || ECDSA_SIG_set0(pair.get(), r.get(), s.get()) != 1) return false;
    static_cast<void>(r.release());  // the pair owns both now
    static_cast<void>(s.release());
    return ECDSA_do_verify(digest.data(), static_cast<int>(digest.size()), pair.get(), key.get()) == 1;
}

}  // namespace brickfall::sandbox
