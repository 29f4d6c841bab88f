// picture_files.h - picture files of any claim and any cost, put together byte by byte. Needs zlib, so it is
// for programs that link the platform.
#pragma once

#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace brickfall {

inline std::string Bytes(uint64_t value, int count, bool big_endian) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        text += static_cast<char>(value >> 8 * (big_endian ? count - 1 - i : i));
    }
    return text;
}

// Least significant bit first, as deflate, GIF and lossless WebP have it.
class BitWriter {
  public:
    void Put(uint32_t value, int count) {
        for (int i = 0; i < count; ++i, ++used_) {
            if (used_ % 8 == 0) bytes += '\0';
            if ((value >> i & 1) != 0) bytes.back() = static_cast<char>(bytes.back() | 1 << used_ % 8);
        }
    }
    std::string bytes;

  private:
    int used_ = 0;
};

inline std::string PngChunk(const std::string& name, const std::string& data) {
    const std::string checked = name + data;
    const auto* const bytes = reinterpret_cast<const Bytef*>(checked.data());
    return Bytes(data.size(), 4, true) + checked +
           Bytes(::crc32(0, bytes, static_cast<uInt>(checked.size())), 4, true);
}

inline std::string PngFile(uint32_t w, uint32_t h, int depth, int color_type, bool interlaced,
                           const std::string& compressed) {
    std::string header = Bytes(w, 4, true) + Bytes(h, 4, true);
    for (const int value : {depth, color_type, 0, 0, interlaced ? 1 : 0}) header += static_cast<char>(value);
    return "\x89PNG\r\n\x1a\n" + PngChunk("IHDR", header) + PngChunk("IDAT", compressed) +
           PngChunk("IEND", "");
}

inline std::string Deflated(const std::string& plain) {
    uLong size = ::compressBound(static_cast<uLong>(plain.size()));
    std::string packed(size, '\0');
    ::compress2(reinterpret_cast<Bytef*>(packed.data()), &size, reinterpret_cast<const Bytef*>(plain.data()),
                static_cast<uLong>(plain.size()), Z_BEST_SPEED);
    packed.resize(size);
    return packed;
}

inline std::string JpegSegment(int marker, const std::string& data) {
    return std::string("\xFF") + static_cast<char>(marker) + Bytes(data.size() + 2, 2, true) + data;
}

// A progressive JPEG of `components` equal ones whose coefficients are all zero: the first scan brings the
// averages, and `more_scans` go over the other coefficients of one component after another.
inline std::string ProgressiveJpeg(int w, int h, int components, int more_scans) {
    const auto byte = [](int value) { return std::string(1, static_cast<char>(value)); };
    std::string frame = byte(8) + Bytes(static_cast<uint64_t>(h), 2, true) +
                        Bytes(static_cast<uint64_t>(w), 2, true) + byte(components);
    std::string scan = byte(components);
    for (int id = 1; id <= components; ++id) {
        frame += byte(id) + byte(0x11) + byte(0);
        scan += byte(id) + byte(0);
    }
    const int blocks = (w + 7) / 8 * ((h + 7) / 8);
    // One code each, of one bit: 0 for "no difference", 0 for "zeros for the next 16,384 blocks and more".
    std::string one_code(16, '\0');
    one_code[0] = 1;
    std::string file = "\xFF\xD8" + JpegSegment(0xDB, byte(0) + std::string(64, 1)) +
                       JpegSegment(0xC2, frame) + JpegSegment(0xC4, byte(0x00) + one_code + byte(0)) +
                       JpegSegment(0xC4, byte(0x10) + one_code + byte(0xE0)) +
                       JpegSegment(0xDA, scan + std::string("\0\0\1", 3)) +
                       std::string(static_cast<std::size_t>(blocks * components / 8 + 1), '\0');
    for (int i = 0; i < more_scans; ++i) {
        file += JpegSegment(0xDA, byte(1) + byte(1 + i % components) + byte(0) + byte(1) + byte(63) +
                                      byte(i < components ? 1 : 0x10));
        file += std::string(static_cast<std::size_t>(blocks / 16'384 * 15 / 8 + 1), '\0');
    }
    return file + "\xFF\xD9";
}

inline std::string RiffChunk(const std::string& name, const std::string& data) {
    return name + Bytes(data.size(), 4, false) + data + std::string(data.size() % 2, '\0');
}

inline std::string WebpFile(const std::string& chunks) { return RiffChunk("RIFF", "WEBP" + chunks); }

// Lossless, black, with an entropy image of one entry for 4 by 4 pixels that names as many groups of codes.
inline std::string WebpOfManyGroups(int side) {
    BitWriter bits;
    const auto one_symbol = [&bits](uint32_t symbol) { bits.Put(symbol << 3 | 1, 4); };  // of no bits
    const auto bytes_alike = [&bits](int alphabet) {  // the first 256 symbols have eight bits each
        bits.Put(0, 1);
        bits.Put(12 - 4, 4);
        for (int i = 0; i < 12; ++i) bits.Put(i == 2 || i == 11 ? 1 : 0, 3);  // of 0 and of 8
        bits.Put(0, 1);
        for (int i = 0; i < alphabet; ++i) bits.Put(i < 256 ? 1 : 0, 1);
    };
    const auto reversed = [&bits](int value) {
        for (int i = 7; i >= 0; --i) bits.Put(static_cast<uint32_t>(value >> i & 1), 1);
    };
    bits.Put(0x2F, 8);
    for (int i = 0; i < 2; ++i) bits.Put(static_cast<uint32_t>(side - 1), 14);
    bits.Put(0, 1 + 3 + 1 + 1);  // no alpha, version, no transform, no cache
    bits.Put(1, 1 + 3);          // an entropy image of 4 by 4 pixels an entry
    bits.Put(0, 1);
    bytes_alike(256 + 24);
    bytes_alike(256);
    for (int i = 0; i < 3; ++i) one_symbol(0);
    const int groups = ((side + 3) / 4) * ((side + 3) / 4);
    for (int group = 0; group < groups; ++group) {
        reversed(group & 255);
        reversed(group >> 8 & 255);
    }
    for (int group = 0; group < groups; ++group) {
        for (int code = 0; code < 5; ++code) one_symbol(static_cast<uint32_t>(group & 1));
    }
    return WebpFile(RiffChunk("VP8L", bits.bytes));
}

}  // namespace brickfall
