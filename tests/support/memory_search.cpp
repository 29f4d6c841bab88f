#include "tests/support/memory_search.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <utility>

#include "base/text.h"
#include "wallet/protocol/encodings.h"

namespace brickfall {
namespace {

std::vector<std::string> Once(std::vector<std::string> names) {
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

}  // namespace

void Needles::Add(const std::string& name, std::span<const uint8_t> bytes, uint8_t mask) {
    for (std::size_t at = 0; at + kPiece <= bytes.size(); at += kPiece) {
        Needle forward{name, {}};
        Needle backward{name + " reversed", {}};
        for (std::size_t i = 0; i < kPiece; ++i) {
            forward.masked[i] = bytes[at + i] ^ mask;
            backward.masked[kPiece - 1 - i] = forward.masked[i];
        }
        needles_.push_back(std::move(forward));
        needles_.push_back(std::move(backward));
    }
}

void Needles::AddKey(const std::string& name, const SecretString& hex) {
    Add(name + " hex", AsBytes(hex));
    std::array<uint8_t, 32> bytes;
    const WipeAtExit wipe_bytes(bytes);
    if (HexDecodeSecret(hex, bytes)) Add(name, bytes);
}

std::vector<std::string> Needles::Find() const {
    std::vector<std::string> found;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        uintptr_t begin = 0;
        uintptr_t end = 0;
        char mode[5] = {};
        if (std::sscanf(line.c_str(), "%lx-%lx %4s", &begin, &end, mode) != 3) continue;
        if (mode[0] != 'r' || mode[1] != 'w') continue;
        Search({reinterpret_cast<const uint8_t*>(begin), end - begin}, found);
    }
    return Once(std::move(found));
}

std::vector<std::string> Needles::FindIn(std::span<const uint8_t> bytes) const {
    std::vector<std::string> found;
    Search(bytes, found);
    return Once(std::move(found));
}

void Needles::Search(std::span<const uint8_t> memory, std::vector<std::string>& found) const {
    std::vector<char> begins(0x10000);  // by the first two bytes, masked
    const uint8_t* const bytes = memory.data();
    char* const may_begin = begins.data();
    for (const Needle& needle : needles_) may_begin[needle.masked[0] << 8 | needle.masked[1]] = 1;
    for (std::size_t at = 0; at + kPiece <= memory.size(); ++at) {
        const int pair = (bytes[at] ^ kSecretMask) << 8 | (bytes[at + 1] ^ kSecretMask);
        if (may_begin[pair] == 0) continue;
        for (const Needle& needle : needles_) {
            std::size_t same = 0;
            while (same < kPiece && (memory[at + same] ^ kSecretMask) == needle.masked[same]) ++same;
            if (same == kPiece) found.push_back(needle.name);
        }
    }
}

}  // namespace brickfall
