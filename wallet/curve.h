// curve.h - secp256k1 (SEC 2) through OpenSSL: the group, kept once for the process, and owners for its
// objects that free, and wipe what is secret, on every path. Any thread.
#pragma once

#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/ecdsa.h>

#include <memory>

namespace brickfall {

template <auto Free>
struct OpensslFree {
    template <typename T>
    void operator()(T* object) const {
        Free(object);
    }
};

using BnCtxPtr = std::unique_ptr<BN_CTX, OpensslFree<BN_CTX_free>>;
using BignumPtr = std::unique_ptr<BIGNUM, OpensslFree<BN_clear_free>>;
using EcPointPtr = std::unique_ptr<EC_POINT, OpensslFree<EC_POINT_clear_free>>;
using EcKeyPtr = std::unique_ptr<EC_KEY, OpensslFree<EC_KEY_free>>;
using EcdsaSigPtr = std::unique_ptr<ECDSA_SIG, OpensslFree<ECDSA_SIG_free>>;

// The curve's group; immutable, never freed.
const EC_GROUP* Secp256k1();

}  // namespace brickfall
