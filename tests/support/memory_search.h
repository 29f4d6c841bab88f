// memory_search.h - looks for secrets in the memory that this process can write. They are kept masked, so
// that the search does not find what it searches for.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "base/secret.h"

namespace brickfall {

inline constexpr uint8_t kSecretMask = 0xa5;  // each byte XOR this

class Needles {
  public:
    // Every piece of 16 bytes, and of their reverse: the limbs of a big number lie low end first.
    void Add(const std::string& name, std::span<const uint8_t> bytes, uint8_t mask = kSecretMask);
    void AddMasked(const std::string& name, std::span<const uint8_t> masked) { Add(name, masked, 0); }
    void AddKey(const std::string& name, const SecretString& hex);  // as text and as bytes

    // The names of what the memory holds, each once.
    std::vector<std::string> Find() const;
    std::vector<std::string> FindIn(std::span<const uint8_t> bytes) const;

  private:
    static constexpr std::size_t kPiece = 16;  // bytes of a secret that count as a find

    struct Needle {
        std::string name;
        std::array<uint8_t, kPiece> masked{};
    };

    void Search(std::span<const uint8_t> memory, std::vector<std::string>& found) const;

    std::vector<Needle> needles_;
};

}  // namespace brickfall
