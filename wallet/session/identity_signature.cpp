#include "wallet/session/identity_signature.h"

#include <array>

#include "wallet/keys/key_derivation.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/protocol/curve.h"
#include "wallet/protocol/ecdsa.h"
#include "wallet/protocol/encodings.h"
#include "wallet/protocol/hashes.h"
#include "wallet/protocol/signed_message.h"
#include "wallet/session/wallet_session.h"

namespace brickfall {
namespace {

constexpr std::size_t kPrivateHexLength = 64;

// r and s of a signature, 32 big-endian bytes each.
using CompactSignature = std::array<uint8_t, 64>;

bool SignCompact(std::string_view private_hex, const Hash256& digest, CompactSignature& compact) {
    ByteBuffer der;
    if (!SignDigest(private_hex, digest, der)) return false;
    const uint8_t* at = der.data();
    const EcdsaSigPtr signature(d2i_ECDSA_SIG(nullptr, &at, static_cast<long>(der.size())));
    if (!signature) return false;
    const BIGNUM* r = nullptr;
    const BIGNUM* s = nullptr;
    ECDSA_SIG_get0(signature.get(), &r, &s);
    return BN_bn2binpad(r, compact.data(), 32) == 32 && BN_bn2binpad(s, compact.data() + 32, 32) == 32;
}

}  // namespace

bool SignIdentityMessage(std::string_view text, std::string& public_hex, std::string& signature,
                         std::string& error) {
    public_hex.clear();
    signature.clear();
    error.clear();
    const WalletLock lock(wallet_mutex);
    if (!LoadWallet() || !wallet_keys.is_hd) {
        error = "Pouch HD wallet not connected";
        return false;
    }
    SecretString private_hex;
    std::string identity_pub;
    std::string address;
    const bool derived = !wallet_keys.mnemonic.empty() &&
                         DeriveAtPath(kIdentityPath, private_hex, identity_pub, address) &&
                         private_hex.size() == kPrivateHexLength;
    if (!derived) {
        error = "could not derive Pouch identity key";
        return false;
    }
    // A verifier takes a signature of the plain hash as well.
    CompactSignature compact;
    if (!SignCompact(private_hex, SignedMessageDigest(text), compact) &&
        !SignCompact(private_hex, Sha256Once(AsBytes(text)), compact)) {
        error = "Pouch identity sign failed";
        return false;
    }
    public_hex = identity_pub;
    signature = Base64Encode(compact);
    return true;
}

}  // namespace brickfall
