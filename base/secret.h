// secret.h - text and bytes in memory that is never swapped out, that no core dump holds, and that is wiped
// whenever it is given back. Any thread.
// Private keys, seeds and recovery words travel in these types only, so that an early return cannot leave a
// copy. A text of fewer than 16 characters lives inside the object and has none of this: every secret here is
// longer.
#pragma once

#include <openssl/crypto.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace brickfall {

void* AllocateSecret(std::size_t bytes);  // std::bad_alloc when there is none
void FreeSecret(void* place, std::size_t bytes);

template <typename T>
struct SecretAllocator {
    using value_type = T;

    SecretAllocator() = default;
    template <typename U>
    SecretAllocator(const SecretAllocator<U>&) {}

    T* allocate(std::size_t count) {
        if (count > SIZE_MAX / sizeof(T)) throw std::bad_array_new_length();
        return static_cast<T*>(AllocateSecret(count * sizeof(T)));
    }
    void deallocate(T* place, std::size_t count) { FreeSecret(place, count * sizeof(T)); }

    template <typename U>
    bool operator==(const SecretAllocator<U>&) const {
        return true;
    }
};

using SecretString = std::basic_string<char, std::char_traits<char>, SecretAllocator<char>>;
using SecretBytes = std::vector<uint8_t, SecretAllocator<uint8_t>>;

// A secret text that many hold at once and that is kept once: as many copies as a wallet has coins would be
// more than a process may lock or map. Wiped with the last of its holders.
class SharedSecret {
  public:
    SharedSecret() = default;
    SharedSecret(SecretString text) : text_(std::make_shared<const SecretString>(std::move(text))) {}

    operator std::string_view() const { return text_ == nullptr ? std::string_view() : *text_; }
    bool empty() const { return text_ == nullptr || text_->empty(); }

  private:
    std::shared_ptr<const SecretString> text_;
};

// An object of such memory that lives as long as the process.
template <typename T>
T& MakeSecretObject() {
    return *new (AllocateSecret(sizeof(T))) T;
}

// While a wallet is loaded: no core file, and no other program of the user may read this one's memory.
void ForbidDumps();
void PermitDumps();  // as it was before

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
