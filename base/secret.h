// secret.h - text and bytes that wipe their storage whenever they give it back.
// Private keys, seeds and recovery words travel in these types only, so that an early return cannot leave a
// copy. A text of fewer than 16 characters lives inside the object and is not wiped: every secret here is
// longer.
#pragma once

#include <openssl/crypto.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace brickfall {

template <typename T>
struct WipingAllocator {
    using value_type = T;

    WipingAllocator() = default;
    template <typename U>
    WipingAllocator(const WipingAllocator<U>&) {}

    T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
    void deallocate(T* place, std::size_t count) {
        OPENSSL_cleanse(place, count * sizeof(T));
        std::allocator<T>().deallocate(place, count);
    }

    template <typename U>
    bool operator==(const WipingAllocator<U>&) const {
        return true;
    }
};

using SecretString = std::basic_string<char, std::char_traits<char>, WipingAllocator<char>>;
using SecretBytes = std::vector<uint8_t, WipingAllocator<uint8_t>>;

// Wipes the whole capacity of `secret` and leaves it empty.
inline void WipeString(SecretString& secret) {
    secret.resize(secret.capacity());
    OPENSSL_cleanse(secret.data(), secret.size());
    secret.clear();
}

// Wipes a fixed-size object, an array of key bytes for instance, when the scope ends.
template <typename T>
class WipeAtExit {
  public:
    explicit WipeAtExit(T& object) : object_(object) {}
    ~WipeAtExit() { OPENSSL_cleanse(&object_, sizeof(T)); }
    WipeAtExit(const WipeAtExit&) = delete;
    WipeAtExit& operator=(const WipeAtExit&) = delete;

  private:
    T& object_;
};

}  // namespace brickfall
