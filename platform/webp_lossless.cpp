#include "platform/webp_lossless.h"

#include <array>
#include <cstddef>
#include <vector>

namespace brickfall {
namespace {

constexpr int kLengthCodes = 24;
constexpr int kDistanceCodes = 40;
constexpr int kMaxCodeLength = 15;

// Least significant bit first. Behind the end come zeros, and `ended` tells.
class Bits {
  public:
    explicit Bits(std::string_view bytes) : bytes_(bytes) {}

    uint32_t Read(int count) {
        uint32_t value = 0;
        for (int i = 0; i < count; ++i) value |= Bit() << i;
        return value;
    }
    uint32_t Bit() {
        const std::size_t byte = at_ / 8;
        if (byte >= bytes_.size()) {
            ended = true;
            return 0;
        }
        return static_cast<uint8_t>(bytes_[byte]) >> at_++ % 8 & 1;
    }

    bool ended = false;

  private:
    std::string_view bytes_;
    std::size_t at_ = 0;  // in bits
};

// A canonical prefix code: how many codes there are of each length, and the symbols in the order of the
// codes.
struct PrefixCode {
    std::array<int, kMaxCodeLength + 1> counts{};
    std::vector<int> symbols;

    // False unless the lengths make a complete code; a single symbol takes no bits.
    bool Build(const std::vector<int>& lengths) {
        counts.fill(0);
        symbols.clear();
        for (int length = 1; length <= kMaxCodeLength; ++length) {
            for (std::size_t symbol = 0; symbol < lengths.size(); ++symbol) {
                if (lengths[symbol] != length) continue;
                symbols.push_back(static_cast<int>(symbol));
                ++counts[static_cast<std::size_t>(length)];
            }
        }
        if (symbols.size() == 1) return true;
        int left = 1;
        for (int length = 1; length <= kMaxCodeLength; ++length) {
            left = 2 * left - counts[static_cast<std::size_t>(length)];
            if (left < 0) return false;
        }
        return left == 0;
    }

    int Read(Bits& bits) const {
        if (symbols.size() == 1) return symbols[0];
        int code = 0;
        int first = 0;  // code of this length
        int index = 0;  // of its symbol
        for (int length = 1; length <= kMaxCodeLength; ++length) {
            code |= static_cast<int>(bits.Bit());
            const int count = counts[static_cast<std::size_t>(length)];
            if (code - first < count) return symbols[static_cast<std::size_t>(index + code - first)];
            index += count;
            first = 2 * (first + count);
            code *= 2;
        }
        return 0;  // not of a complete code
    }
};

bool ReadCodeLengths(Bits& bits, std::vector<int>& lengths) {
    constexpr std::size_t kOrder[] = {17, 18, 0, 1, 2, 3, 4, 5, 16, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    std::vector<int> code_lengths(std::size(kOrder));
    const std::size_t given = bits.Read(4) + 4;
    for (std::size_t i = 0; i < given; ++i) code_lengths[kOrder[i]] = static_cast<int>(bits.Read(3));
    PrefixCode code;
    if (!code.Build(code_lengths)) return false;
    std::size_t tokens = lengths.size();
    if (bits.Bit() == 1) {
        const int width = 2 + 2 * static_cast<int>(bits.Read(3));
        tokens = 2 + bits.Read(width);
        if (tokens > lengths.size()) return false;
    }
    int former = 8;
    for (std::size_t symbol = 0; symbol < lengths.size() && tokens > 0; --tokens) {
        const int token = code.Read(bits);
        if (token < 16) {
            if (token != 0) former = token;
            lengths[symbol++] = token;
            continue;
        }
        const std::size_t repeats = token == 16   ? 3 + bits.Read(2)
                                    : token == 17 ? 3 + bits.Read(3)
                                                  : 11 + bits.Read(7);
        if (repeats > lengths.size() - symbol) return false;
        for (std::size_t i = 0; i < repeats; ++i) lengths[symbol++] = token == 16 ? former : 0;
    }
    return true;
}

bool ReadCode(Bits& bits, int alphabet, PrefixCode& code) {
    std::vector<int> lengths(static_cast<std::size_t>(alphabet));
    if (bits.Bit() == 1) {
        const bool two = bits.Bit() == 1;
        uint32_t symbol = bits.Read(bits.Bit() == 1 ? 8 : 1);
        for (int i = 0; i < (two ? 2 : 1); ++i) {
            if (symbol >= lengths.size()) return false;
            lengths[symbol] = 1;
            if (i == 0 && two) symbol = bits.Read(8);
        }
    } else if (!ReadCodeLengths(bits, lengths)) {
        return false;
    }
    return !bits.ended && code.Build(lengths);
}

uint32_t ReadPrefixedValue(Bits& bits, int symbol) {
    if (symbol < 4) return static_cast<uint32_t>(symbol) + 1;
    const int extra = (symbol - 2) / 2;
    return ((2u + static_cast<uint32_t>(symbol % 2)) << extra) + bits.Read(extra) + 1;
}

// Passes over an image that serves another one: no entropy image of its own. Pixels have no values here.
bool SkipImage(Bits& bits, int64_t pixels) {
    int cache_size = 0;
    if (bits.Bit() == 1) {
        const uint32_t cache_bits = bits.Read(4);
        if (cache_bits < 1 || cache_bits > 11) return false;
        cache_size = 1 << cache_bits;
    }
    const int alphabets[] = {256 + kLengthCodes + cache_size, 256, 256, 256, kDistanceCodes};
    std::array<PrefixCode, 5> codes;
    for (std::size_t i = 0; i < codes.size(); ++i) {
        if (!ReadCode(bits, alphabets[i], codes[i])) return false;
    }
    while (pixels > 0) {
        const int symbol = codes[0].Read(bits);
        if (symbol < 256) {
            for (std::size_t i = 1; i < 4; ++i) codes[i].Read(bits);
            --pixels;
        } else if (symbol < 256 + kLengthCodes) {
            pixels -= ReadPrefixedValue(bits, symbol - 256);
            ReadPrefixedValue(bits, codes[4].Read(bits));
        } else {
            --pixels;
        }
        if (bits.ended) return false;
    }
    return pixels == 0;
}

int64_t Tiles(int side, int bits) { return (int64_t{side} + (1 << bits) - 1) >> bits; }

}  // namespace

std::optional<int64_t> EntropyImageEntries(std::string_view stream, int w, int h) {
    Bits bits(stream);
    unsigned seen = 0;
    while (bits.Bit() == 1) {
        const unsigned transform = bits.Read(2);
        if ((seen >> transform & 1) == 1) return std::nullopt;
        seen |= 1u << transform;
        if (transform < 2) {  // of tiles: predictor, colour
            const int tile_bits = static_cast<int>(bits.Read(3)) + 2;
            if (!SkipImage(bits, Tiles(w, tile_bits) * Tiles(h, tile_bits))) return std::nullopt;
        } else if (transform == 3) {  // a palette; of a small one several pixels share a byte
            const int colors = static_cast<int>(bits.Read(8)) + 1;
            if (!SkipImage(bits, colors)) return std::nullopt;
            w = static_cast<int>(Tiles(w, colors > 16 ? 0 : colors > 4 ? 1 : colors > 2 ? 2 : 3));
        }
    }
    if (bits.Bit() == 1) bits.Read(4);  // the size of the colour cache
    int64_t entries = 1;
    if (bits.Bit() == 1) {
        const int tile_bits = static_cast<int>(bits.Read(3)) + 2;
        entries = Tiles(w, tile_bits) * Tiles(h, tile_bits);
    }
    if (bits.ended) return std::nullopt;
    return entries;
}

}  // namespace brickfall
