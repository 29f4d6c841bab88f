// curve_ptr.h - owners of the crypto library's objects.
#pragma once

#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/ecdsa.h>

#include <memory>

namespace brickfall::sandbox {

template <auto Free>
struct FreeWith {
    template <typename T>
    void operator()(T* object) const {
        Free(object);
    }
};
using BignumPtr = std::unique_ptr<BIGNUM, FreeWith<BN_free>>;
using KeyPtr = std::unique_ptr<EC_KEY, FreeWith<EC_KEY_free>>;
using PointPtr = std::unique_ptr<EC_POINT, FreeWith<EC_POINT_free>>;
using SignaturePtr = std::unique_ptr<ECDSA_SIG, FreeWith<ECDSA_SIG_free>>;

}  // namespace brickfall::sandbox
