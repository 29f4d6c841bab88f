#include "platform/picture_guard.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "platform/webp_lossless.h"

namespace brickfall {
namespace {

// What decoders hold for pixels or coefficients, beside the file's 16 MB, twice, and the program.
constexpr int64_t kHeldBytes = 104 << 20;
// Unpacked rows of a PNG: a full square in 24 bits, or 12 megapixels in 32.
constexpr int64_t kMaxPngRows = int64_t{3} * kMaxPictureSide * kMaxPictureSide + kMaxPictureSide;
// Each block of a compressed stream may bring tables, and cost a microsecond. Real ones hold kilobytes.
constexpr int64_t kBytesPerBlock = 512;
constexpr int64_t kBlocksBeside = 1'024;
constexpr int64_t kBytesBeside = 65'536;  // that some writers add
// Steps from coefficient to coefficient, over all scans of a JPEG: a large photograph takes a quarter.
constexpr int64_t kMaxCoefficientSteps = 512 << 20;
constexpr int64_t kMaxWebpPixels = 8 << 20;  // 8 bytes each
// Real encoders stay below 2,600.
constexpr int64_t kMaxEntropyEntries = 4'096;

uint8_t ByteAt(std::string_view bytes, std::size_t at) { return static_cast<uint8_t>(bytes[at]); }

uint32_t BigEndian(std::string_view bytes, std::size_t at, std::size_t count) {
    uint32_t value = 0;
    for (std::size_t i = 0; i < count; ++i) value = value << 8 | ByteAt(bytes, at + i);
    return value;
}

uint32_t LittleEndian(std::string_view bytes, std::size_t at, std::size_t count) {
    uint32_t value = 0;
    for (std::size_t i = count; i > 0; --i) value = value << 8 | ByteAt(bytes, at + i - 1);
    return value;
}

bool SidesAllowed(int64_t w, int64_t h) {
    return w >= 1 && h >= 1 && w <= kMaxPictureSide && h <= kMaxPictureSide;
}

std::optional<StillPicture> Still(PictureFormat format, int64_t w, int64_t h) {
    return StillPicture{format, static_cast<int>(w), static_cast<int>(h)};
}

// Moves what is kept of a file to its front. Reading goes ahead of writing, on the same bytes.
class Keeper {
  public:
    explicit Keeper(std::string& file) : file_(file) {}

    void Keep(std::size_t at, std::size_t length) {
        if (at != kept_) std::memmove(file_.data() + kept_, file_.data() + at, length);
        kept_ += length;
    }
    // The rest is dropped.
    void End(std::string_view tail = "") {
        file_.resize(kept_);
        file_.append(tail);
    }

  private:
    std::string& file_;
    std::size_t kept_ = 0;
};

// ---- PNG (ISO/IEC 15948)

constexpr std::string_view kPngMagic = "\x89PNG\r\n\x1a\n";
constexpr std::size_t kAroundPngData = 12;  // length, name and checksum

// Counts what the compressed rows unpack to, without keeping it. A decoder would unpack a stream to its end,
// however long, and read however many tables it brings.
class RowCount {
  public:
    explicit RowCount(int64_t expected) : expected_(expected) {
        started_ = inflateInit(&stream_) == Z_OK;
        usable_ = started_;
    }
    ~RowCount() {
        if (started_) inflateEnd(&stream_);
    }
    RowCount(const RowCount&) = delete;
    RowCount& operator=(const RowCount&) = delete;

    // False for a stream that is damaged or not worth it. What follows its end is not looked at.
    bool Add(std::string_view bytes) {
        stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
        stream_.avail_in = static_cast<uInt>(bytes.size());
        while (usable_ && !ended_ && stream_.avail_in > 0) {
            std::array<Bytef, 32'768> window;
            stream_.next_out = window.data();
            stream_.avail_out = static_cast<uInt>(window.size());
            const int result = inflate(&stream_, Z_BLOCK);  // to the end of a block at most
            unpacked_ += static_cast<int64_t>(window.size() - stream_.avail_out);
            if ((stream_.data_type & 128) != 0) ++blocks_;
            ended_ = result == Z_STREAM_END;
            usable_ = (result == Z_OK || ended_) && unpacked_ <= expected_ + kBytesBeside &&
                      blocks_ <= kBlocksBeside + expected_ / kBytesPerBlock;
        }
        return usable_;
    }
    bool Whole() const { return usable_ && unpacked_ >= expected_; }

  private:
    z_stream stream_{};
    bool started_ = false;
    bool usable_ = false;
    bool ended_ = false;
    int64_t expected_;
    int64_t unpacked_ = 0;
    int64_t blocks_ = 0;
};

struct PngHeader {
    int64_t w = 0;
    int64_t h = 0;
    int depth = 0;
    int bits_a_pixel = 0;
    bool interlaced = false;

    // With the filter's byte in front of each row; of all seven passes of an interlaced picture.
    int64_t RowBytes() const {
        const auto pass = [this](int64_t columns, int64_t rows) {
            return columns == 0 ? 0 : rows * (1 + (columns * bits_a_pixel + 7) / 8);
        };
        if (!interlaced) return pass(w, h);
        struct Pass {
            int x, y, dx, dy;
        };
        constexpr Pass kPasses[] = {{0, 0, 8, 8}, {4, 0, 8, 8}, {0, 4, 4, 8}, {2, 0, 4, 4},
                                    {0, 2, 2, 4}, {1, 0, 2, 2}, {0, 1, 1, 2}};
        int64_t bytes = 0;
        for (const Pass& p : kPasses) {
            bytes += pass((w - p.x + p.dx - 1) / p.dx, (h - p.y + p.dy - 1) / p.dy);
        }
        return bytes;
    }
};

std::optional<PngHeader> ReadPngHeader(std::string_view data) {
    constexpr int kChannels[] = {1, 0, 3, 1, 2, 0, 4};  // by colour type
    if (data.size() != 13) return std::nullopt;
    PngHeader header;
    header.w = BigEndian(data, 0, 4);
    header.h = BigEndian(data, 4, 4);
    header.depth = ByteAt(data, 8);
    const std::size_t color_type = ByteAt(data, 9);
    if (color_type >= std::size(kChannels) || kChannels[color_type] == 0) return std::nullopt;
    if (header.depth > 16 || !SidesAllowed(header.w, header.h)) return std::nullopt;
    header.bits_a_pixel = header.depth * kChannels[color_type];
    header.interlaced = data[12] != 0;
    // 16-bit channels are held in 8 bytes a pixel, then brought to 4.
    const int64_t held = header.depth == 16 ? 12 : 5;
    if (header.w * header.h * held > kHeldBytes || header.RowBytes() > kMaxPngRows) return std::nullopt;
    return header;
}

std::optional<StillPicture> KeepStillPng(std::string& file) {
    constexpr std::string_view kKept[] = {"IHDR", "PLTE", "tRNS", "IDAT", "IEND"};
    const std::string_view bytes = file;
    Keeper keeper(file);
    keeper.Keep(0, kPngMagic.size());
    std::optional<PngHeader> header;
    std::optional<RowCount> rows;
    std::size_t at = kPngMagic.size();
    while (at + kAroundPngData <= bytes.size()) {
        const std::size_t length = BigEndian(bytes, at, 4);
        if (length > bytes.size() - at - kAroundPngData) return std::nullopt;
        const std::string_view name = bytes.substr(at + 4, 4);
        const std::string_view data = bytes.substr(at + 8, length);
        const std::size_t chunk = at;
        at += kAroundPngData + length;
        if (std::ranges::find(kKept, name) == std::end(kKept)) continue;
        // The decoder would complain of a damaged one on the terminal.
        const auto* const checked = reinterpret_cast<const Bytef*>(name.data());
        if (::crc32(0, checked, static_cast<uInt>(4 + length)) != BigEndian(bytes, at - 4, 4)) {
            return std::nullopt;
        }
        if ((name == "IHDR") == header.has_value()) return std::nullopt;  // it comes first, and once
        if (name == "IHDR") {
            header = ReadPngHeader(data);
            if (!header) return std::nullopt;
            rows.emplace(header->RowBytes());
        } else if (name == "IDAT") {
            if (length == 0) continue;
            if (!rows->Add(data)) return std::nullopt;
        }
        const bool is_end = name == "IEND";  // before its bytes are moved
        keeper.Keep(chunk, at - chunk);
        if (!is_end) continue;
        if (!rows->Whole()) return std::nullopt;
        keeper.End();
        return Still(PictureFormat::kPng, header->w, header->h);
    }
    return std::nullopt;
}

// ---- JPEG (ITU-T T.81)

struct JpegFrame {
    struct Component {
        int id = 0;
        int64_t blocks = 0;  // of 8 by 8 coefficients
    };
    int64_t w = 0;
    int64_t h = 0;
    std::vector<Component> components;
};

std::optional<JpegFrame> ReadJpegFrame(std::string_view data) {
    if (data.size() < 6 || data[0] != 8) return std::nullopt;
    JpegFrame frame;
    frame.h = BigEndian(data, 1, 2);
    frame.w = BigEndian(data, 3, 2);
    const std::size_t count = ByteAt(data, 5);
    if (!SidesAllowed(frame.w, frame.h) || count < 1 || count > 4 || data.size() != 6 + 3 * count) {
        return std::nullopt;
    }
    int across = 1;  // the largest sampling factors
    int down = 1;
    for (std::size_t i = 0; i < count; ++i) {
        const int factors = ByteAt(data, 7 + 3 * i);
        if (factors >> 4 < 1 || factors >> 4 > 4 || (factors & 15) < 1 || (factors & 15) > 4) {
            return std::nullopt;
        }
        across = std::max(across, factors >> 4);
        down = std::max(down, factors & 15);
    }
    const int64_t units =
        ((frame.w + 8 * across - 1) / (8 * across)) * ((frame.h + 8 * down - 1) / (8 * down));
    int64_t blocks = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const int factors = ByteAt(data, 7 + 3 * i);
        frame.components.push_back({ByteAt(data, 6 + 3 * i), units * (factors >> 4) * (factors & 15)});
        blocks += frame.components.back().blocks;
    }
    // Two bytes a coefficient are held where there are several scans.
    if (blocks * 128 > kHeldBytes) return std::nullopt;
    return frame;
}

// How many coefficients a scan goes over.
std::optional<int64_t> ScanSteps(const JpegFrame& frame, std::string_view data) {
    const std::size_t count = data.empty() ? 0 : ByteAt(data, 0);
    if (count < 1 || count > 4 || data.size() != 4 + 2 * count) return std::nullopt;
    const int first = ByteAt(data, 1 + 2 * count);
    const int last = ByteAt(data, 2 + 2 * count);
    if (first > last || last > 63) return std::nullopt;
    int64_t steps = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const int id = ByteAt(data, 1 + 2 * i);
        const auto component =
            std::ranges::find(frame.components, id, [](const JpegFrame::Component& c) { return c.id; });
        if (component == frame.components.end()) return std::nullopt;
        steps += component->blocks * (last - first + 1);
    }
    return steps;
}

// Where the compressed data that begins at `at` ends: at the next marker but a restart.
std::size_t EndOfScan(std::string_view bytes, std::size_t at) {
    while ((at = bytes.find('\xFF', at)) != std::string_view::npos) {
        if (at + 1 >= bytes.size()) break;
        const int next = ByteAt(bytes, at + 1);
        if (next == 0xFF) {
            ++at;
        } else if (next == 0 || (next >= 0xD0 && next <= 0xD7)) {
            at += 2;
        } else {
            return at;
        }
    }
    return bytes.size();
}

// Whether the segment is of use to one that only wants the pixels. The two of applications decide what the
// channels are.
bool IsJpegSegmentKept(int marker, std::string_view data) {
    constexpr int kTables[] = {0xC4, 0xDB, 0xDD};
    if (marker == 0xE0) return data.starts_with(std::string_view("JFIF\0", 5));
    if (marker == 0xEE) return data.starts_with("Adobe");
    return std::ranges::find(kTables, marker) != std::end(kTables);
}

std::optional<StillPicture> KeepStillJpeg(std::string& file) {
    const std::string_view bytes = file;
    Keeper keeper(file);
    keeper.Keep(0, 2);
    std::optional<JpegFrame> frame;
    int scans = 0;
    int64_t steps = 0;
    std::size_t at = 2;
    while (at + 4 <= bytes.size()) {
        const int marker = ByteAt(bytes, at + 1);
        if (bytes[at] != '\xFF' || marker == 0xFF || marker == 0) {  // decoders look for the next one too
            ++at;
            continue;
        }
        if (marker == 0xD9) break;
        const std::size_t length = BigEndian(bytes, at + 2, 2);
        if (marker < 0xC0 || (marker >= 0xD0 && marker <= 0xD8) || length < 2) return std::nullopt;
        if (length > bytes.size() - at - 2) break;  // cut short
        const std::string_view data = bytes.substr(at + 4, length - 2);
        const std::size_t segment = at;
        at += 2 + length;
        if (marker <= 0xC2) {  // baseline, extended, progressive; all of prefix codes
            if (frame) return std::nullopt;
            frame = ReadJpegFrame(data);
            if (!frame) return std::nullopt;
        } else if (marker == 0xDA) {
            if (!frame || ++scans > kMaxJpegScans) return std::nullopt;
            const std::optional<int64_t> more = ScanSteps(*frame, data);
            if (!more || (steps += *more) > kMaxCoefficientSteps) return std::nullopt;
            at = EndOfScan(bytes, at);
        } else if (!IsJpegSegmentKept(marker, data)) {
            // An application's or a comment is of no use; what is none of the two is no picture of these.
            if (marker < 0xE0) return std::nullopt;
            continue;
        }
        keeper.Keep(segment, at - segment);
    }
    if (!frame || scans == 0) return std::nullopt;
    keeper.End("\xFF\xD9");
    return Still(PictureFormat::kJpeg, frame->w, frame->h);
}

// ---- GIF (version 89a)

// Counts the pixels of a compressed stream (LZW of variable width) without making them.
class PixelCount {
  public:
    PixelCount(int code_bits, int64_t expected) : clear_(1 << code_bits), left_(expected) { Clear(); }

    // How many of the bytes are of use. Fewer than there are once all pixels are there, and at the stream's
    // end or first fault: a decoder would go on.
    std::size_t Add(std::string_view bytes) {
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            bits_ |= uint32_t{ByteAt(bytes, i)} << held_;
            held_ += 8;
            while (!done_ && held_ >= width_) {
                TakeCode(static_cast<int>(bits_ & ((1u << width_) - 1)));
                bits_ >>= taken_;
                held_ -= taken_;
            }
            if (done_) return i + 1;
        }
        return bytes.size();
    }
    bool Done() const { return done_; }

  private:
    static constexpr int kTableSize = 4'096;

    void Clear() {
        next_ = clear_ + 2;
        former_ = 0;
        width_ = 1;
        while (1 << width_ < next_) ++width_;
    }
    void TakeCode(int code) {
        taken_ = width_;
        if (code == clear_) return Clear();
        if (code == clear_ + 1 || code > next_ || (former_ == 0 && code >= clear_)) {
            done_ = true;
            return;
        }
        // A code is a string: that of an older code and one pixel more.
        const int length = code < clear_   ? 1
                           : code == next_ ? former_ + 1
                                           : lengths_[static_cast<std::size_t>(code)];
        if (former_ > 0 && next_ < kTableSize) {
            lengths_[static_cast<std::size_t>(next_++)] = former_ + 1;
            if (next_ == 1 << width_ && next_ < kTableSize) ++width_;
        }
        former_ = length;
        left_ -= length;
        done_ = left_ <= 0;
    }

    int clear_;
    int64_t left_;
    int next_ = 0;
    int former_ = 0;  // length of the former code's string; 0 behind a clear
    int width_ = 0;
    int taken_ = 0;
    std::array<int, kTableSize> lengths_{};
    uint32_t bits_ = 0;
    int held_ = 0;
    bool done_ = false;
};

std::size_t ColorTableBytes(int flags) {
    return (flags & 0x80) != 0 ? std::size_t{3} << ((flags & 7) + 1) : 0;
}

std::optional<StillPicture> KeepStillGif(std::string& file) {
    constexpr std::size_t kHead = 13;
    constexpr std::size_t kControl = 8;
    constexpr std::size_t kFrame = 10;
    const std::string_view bytes = file;
    if (bytes.size() < kHead) return std::nullopt;
    const int64_t w = LittleEndian(bytes, 6, 2);
    const int64_t h = LittleEndian(bytes, 8, 2);
    std::size_t at = kHead + ColorTableBytes(ByteAt(bytes, 10));
    if (!SidesAllowed(w, h) || at > bytes.size()) return std::nullopt;
    Keeper keeper(file);
    keeper.Keep(0, at);
    std::optional<std::size_t> control;  // the transparent colour of the frame that follows
    while (at + 2 <= bytes.size() && bytes[at] == '!') {
        if (ByteAt(bytes, at + 1) == 0xF9 && at + kControl <= bytes.size() && bytes[at + 2] == 4)
            control = at;
        at += 2;
        while (at < bytes.size() && bytes[at] != 0) at += 1 + std::size_t{ByteAt(bytes, at)};
        ++at;
    }
    if (at + kFrame + 1 > bytes.size() || bytes[at] != ',') return std::nullopt;
    const int64_t frame_w = LittleEndian(bytes, at + 5, 2);
    const int64_t frame_h = LittleEndian(bytes, at + 7, 2);
    const std::size_t data = at + kFrame + ColorTableBytes(ByteAt(bytes, at + 9));
    if (!SidesAllowed(frame_w, frame_h) || data >= bytes.size()) return std::nullopt;
    const int code_bits = bytes[data];
    if (code_bits < 1 || code_bits > 8) return std::nullopt;
    if (control) {
        file[*control + 3] &=
            1;  // transparency only: what happens after the frame would cost a second picture
        file[*control + 7] = '\0';  // and nothing more of it
        keeper.Keep(*control, kControl);
    }
    keeper.Keep(at, data + 1 - at);
    PixelCount pixels(code_bits, frame_w * frame_h);
    at = data + 1;
    while (at < bytes.size() && bytes[at] != 0 && !pixels.Done()) {
        const std::size_t length = std::min<std::size_t>(ByteAt(bytes, at), bytes.size() - at - 1);
        const std::size_t used = pixels.Add(bytes.substr(at + 1, length));
        if (used == 0) break;
        file[at] = static_cast<char>(used);
        keeper.Keep(at, 1 + used);
        at += 1 + length;
    }
    keeper.End(std::string_view("\0;", 2));
    return Still(PictureFormat::kGif, w, h);
}

// ---- BMP

std::optional<StillPicture> CheckBmp(std::string_view bytes) {
    constexpr std::size_t kHead = 14;
    if (bytes.size() < kHead + 12) return std::nullopt;
    const std::size_t header = LittleEndian(bytes, kHead, 4);
    const bool is_old = header == 12;
    if (!is_old && (header < 40 || header > 124)) return std::nullopt;
    if (bytes.size() < kHead + header) return std::nullopt;
    const std::size_t side = is_old ? 2 : 4;
    const std::size_t depth_at = kHead + 4 + 2 * side + 2;
    const int64_t w = LittleEndian(bytes, kHead + 4, side);
    int64_t h = LittleEndian(bytes, kHead + 4 + side, side);
    if (!is_old) h = static_cast<int32_t>(h);
    h = h < 0 ? -h : h;  // rows from the top
    if (!SidesAllowed(w, h)) return std::nullopt;
    // Packed rows end where they like. Of plain ones each must be there: a decoder would show whatever its
    // memory holds in their place.
    const uint32_t packing = is_old ? 0 : LittleEndian(bytes, depth_at + 2, 4);
    if (packing == 0 || packing == 3) {
        const int64_t row = (w * LittleEndian(bytes, depth_at, 2) + 31) / 32 * 4;
        const int64_t rows_at = LittleEndian(bytes, 10, 4);
        if (rows_at < static_cast<int64_t>(kHead + header)) return std::nullopt;
        if (rows_at + row * h > static_cast<int64_t>(bytes.size())) return std::nullopt;
    } else if (packing > 3) {
        return std::nullopt;
    }
    return Still(PictureFormat::kBmp, w, h);
}

// ---- WebP (RFC 9649)

struct RiffChunk {
    std::string_view name;
    std::size_t at = 0;    // of its name
    std::size_t size = 0;  // of its data, which begins 8 bytes behind
};

// The chunk that begins there and ends with the file at the latest.
std::optional<RiffChunk> ChunkAt(std::string_view bytes, std::size_t at) {
    if (at > bytes.size() || bytes.size() - at < 8) return std::nullopt;
    RiffChunk chunk = {bytes.substr(at, 4), at, LittleEndian(bytes, at + 4, 4)};
    if (chunk.size > bytes.size() - at - 8) return std::nullopt;
    return chunk;
}

std::string LittleEndianText(std::size_t value, int count) {
    std::string text;
    for (int i = 0; i < count; ++i) text += static_cast<char>(value >> (8 * i));
    return text;
}

bool LosslessIsWorthIt(std::string_view stream, int64_t w, int64_t h) {
    const auto entries = EntropyImageEntries(stream, static_cast<int>(w), static_cast<int>(h));
    return entries && *entries <= kMaxEntropyEntries;
}

std::optional<StillPicture> KeepStillWebp(std::string& file) {
    constexpr std::size_t kHead = 12;
    constexpr std::size_t kFrameHead = 16;  // of an animation's frame
    const std::string_view bytes = file;
    std::size_t at = kHead;
    std::optional<RiffChunk> alpha;
    std::optional<RiffChunk> pixels;
    while (const auto chunk = ChunkAt(bytes, at)) {
        at += 8 + chunk->size + chunk->size % 2;
        if (chunk->name == "ANMF" && chunk->size >= kFrameHead) at = chunk->at + 8 + kFrameHead;  // into it
        if (chunk->name == "ALPH" && !alpha) alpha = chunk;
        if (chunk->name != "VP8 " && chunk->name != "VP8L") continue;
        pixels = chunk;
        break;
    }
    if (!pixels) return std::nullopt;
    const std::string_view data = bytes.substr(pixels->at + 8, pixels->size);
    int64_t w = 0;
    int64_t h = 0;
    if (pixels->name == "VP8L") {
        constexpr std::size_t kLosslessHead = 5;
        if (data.size() < kLosslessHead || data[0] != 0x2F) return std::nullopt;
        const uint32_t sides = LittleEndian(data, 1, 4);
        w = (sides & 0x3FFF) + 1;
        h = (sides >> 14 & 0x3FFF) + 1;
        alpha.reset();  // has its own
        if (!SidesAllowed(w, h) || !LosslessIsWorthIt(data.substr(kLosslessHead), w, h)) return std::nullopt;
    } else {
        if (data.size() < 10 || data.substr(3, 3) != "\x9D\x01\x2A") return std::nullopt;
        w = LittleEndian(data, 6, 2) & 0x3FFF;
        h = LittleEndian(data, 8, 2) & 0x3FFF;
    }
    if (!SidesAllowed(w, h) || w * h > kMaxWebpPixels) return std::nullopt;
    if (alpha) {
        const std::string_view plane = bytes.substr(alpha->at + 8, alpha->size);
        const bool packed = !plane.empty() && (plane[0] & 3) == 1;
        if (plane.empty() || (packed && !LosslessIsWorthIt(plane.substr(1), w, h))) return std::nullopt;
    }

    // The same chunks with a head of their own; the extended one is there wherever alpha stands apart.
    std::string head = "WEBP";
    if (alpha) {
        head += "VP8X" + LittleEndianText(10, 4) + LittleEndianText(0x10, 4);
        head += LittleEndianText(static_cast<std::size_t>(w - 1), 3);
        head += LittleEndianText(static_cast<std::size_t>(h - 1), 3);
    }
    std::size_t size = head.size();
    for (const auto& chunk : {alpha, pixels}) {
        if (chunk) size += 8 + chunk->size + chunk->size % 2;
    }
    head = "RIFF" + LittleEndianText(size, 4) + head;
    if (head.size() > (alpha ? alpha : pixels)->at) return std::nullopt;
    head.copy(file.data(), head.size());
    Keeper keeper(file);
    keeper.Keep(0, head.size());
    for (const auto& chunk : {alpha, pixels}) {
        if (!chunk) continue;
        const std::size_t padded = 8 + chunk->size + chunk->size % 2;
        keeper.Keep(chunk->at, std::min(padded, bytes.size() - chunk->at));
    }
    keeper.End();
    if (file.size() % 2 != 0) file += '\0';
    return Still(PictureFormat::kWebp, w, h);
}

}  // namespace

std::optional<StillPicture> KeepStillPicture(std::string& file) {
    if (file.size() > kMaxPictureFile) return std::nullopt;
    if (file.starts_with(kPngMagic)) return KeepStillPng(file);
    if (file.starts_with("\xFF\xD8\xFF")) return KeepStillJpeg(file);
    if (file.starts_with("GIF87a") || file.starts_with("GIF89a")) return KeepStillGif(file);
    if (file.starts_with("BM")) return CheckBmp(file);
    if (file.starts_with("RIFF") && file.size() >= 12 && file.compare(8, 4, "WEBP") == 0) {
        return KeepStillWebp(file);
    }
    return std::nullopt;
}

}  // namespace brickfall
