// Pictures of every kind, whole, broken, and made to cost. The small files are those that the fuzz target
// starts from.
#include "platform/image.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "base/files.h"
#include "platform/picture_guard.h"
#include "tests/support/picture_files.h"

namespace brickfall {
namespace {

using Pixels = std::vector<uint32_t>;
using namespace std::string_literals;
using namespace std::string_view_literals;

std::string Sample(const std::string& name) {
    return ReadFile(std::string(BRICKFALL_SOURCE_DIR) + "/fuzz/corpus/image/" + name).value_or("");
}

std::string Replaced(std::string file, std::size_t at, std::string_view bytes) {
    return file.replace(at, bytes.size(), bytes);
}

TEST(Decode, ReadsEveryKindAndReducesEachLongSide) {
    const struct {
        std::string file;
        int w, h;
        Pixels pixels;  // the first ones
    } kCases[] = {
        {Sample("quad.png"), 2, 2, {0xFFFF0000, 0x8000FF00, 0xFF0000FF}},              // not premultiplied
        {Sample("quad.bmp"), 2, 2, {0xFFFF0000, 0xFF00FF00, 0xFF0000FF, 0xFFFFFFFF}},  // its last row first
        {Sample("two_frames.gif"), 1, 1, {0xFFFF0000}},                                // the first
        {Sample("orange.jpg"), 16, 16, Pixels(256, 0xFFFF8C28)},
        {Sample("progressive.jpg"), 16, 16, Pixels(256, 0xFFFF8C28)},
        {Sample("orange.webp"), 16, 16, Pixels(256, 0xFFFF8C28)},
        {ProgressiveJpeg(3'000, 4'000, 3, 0), 152, 152, {}},
        {PngFile(300, 8, 8, 6, false, Deflated(std::string((1 + 300 * 4) * 8, '\0'))), 152, 8, {}},
        {WebpOfManyGroups(160), 152, 152, {}},
    };
    for (const auto& [file, w, h, pixels] : kCases) {
        const auto image = DecodeImage(file, 152);
        ASSERT_TRUE(image) << file.substr(0, 16);
        EXPECT_EQ(std::tuple(image->w, image->h, image->pixels.size()), std::tuple(w, h, std::size_t(w * h)));
        for (std::size_t i = 0; i < 4 * pixels.size(); ++i) {
            const auto channel = [i](const Pixels& of) { return of[i / 4] >> i % 4 * 8 & 255; };
            EXPECT_NEAR(channel(image->pixels), channel(pixels), w > 2 ? 4 : 0) << file.substr(0, 16) << i;
        }
    }
}

// What a still picture does not need never reaches a decoder, and what it needs comes through.
TEST(Guard, LeavesOneStillPicture) {
    const auto with = [](std::string file, std::size_t at, const std::string& more) {
        return file.insert(at, more);
    };
    const std::string png = Sample("quad.png"), jpeg = Sample("progressive.jpg"),
                      gif = Sample("two_frames.gif"), text = Deflated(std::string(1'000'000, 'A'));
    const std::size_t frame = gif.find(',');
    // No second frame, no note of what happens after the first, and of its codes those up to the last pixel.
    const std::string gif_still = Replaced(gif.substr(0, frame + 11), frame - 5, "\0"sv) + "\1\x44\0;"s;
    std::string chunks;
    for (const char* const name : {"zTXt", "iTXt", "iCCP", "tEXt", "eXIf", "acTL", "fdAT"}) {
        chunks += PngChunk(name, "k\0\0"s + text);
    }
    const std::string segments = JpegSegment(0xE1, "Exif") + JpegSegment(0xE2, std::string(60'000, 'p')) +
                                 JpegSegment(0xFE, "a comment") + JpegSegment(0xEE, "other");
    const std::string lossy = Sample("orange.webp").substr(12);
    const std::string alpha = RiffChunk("ALPH", std::string(1 + 256, '\0'));
    const std::string canvas = RiffChunk("VP8X", "\x10\0\0\0\x0F\0\0\x0F\0\0"s);
    const std::string still = WebpFile(canvas + alpha + lossy);
    const struct {
        const char* why;
        std::string file, kept;
    } rows[] = {
        {"compressed text", with(png, png.find("IDAT") - 4, chunks), png},
        {"a tail", png + std::string(50'000, 't'), png},
        {"a camera's notes", with(jpeg, 2, segments), jpeg},
        {"a cut photograph", jpeg.substr(0, jpeg.size() - 2), jpeg},
        {"a second picture", jpeg + jpeg, jpeg},
        {"a GIF's comment", with(gif, frame, "!\xFE\3abc\0"s), gif_still},
        {"a profile",
         WebpFile(canvas + RiffChunk("ICCP", text) + lossy + RiffChunk("EXIF", text) +
                  RiffChunk("XMP ", text)),
         Sample("orange.webp")},
        {"alpha apart", WebpFile(canvas + RiffChunk("ICCP", text) + alpha + lossy), still},
        {"an animation",
         WebpFile(canvas + RiffChunk("ANIM", std::string(6, '\0')) +
                  RiffChunk("ANMF", std::string(16, '\0') + alpha + lossy) +
                  RiffChunk("ANMF", std::string(16, '\0') + lossy)),
         still},
    };
    for (const auto& [why, whole, kept] : rows) {
        std::string file = whole;
        EXPECT_TRUE(KeepStillPicture(file)) << why;
        EXPECT_EQ(file, kept) << why;
        EXPECT_TRUE(DecodeImage(kept, 64)) << why;
        EXPECT_EQ(DecodeImage(whole, 64), DecodeImage(kept, 64)) << why;
    }
    EXPECT_EQ(DecodeImage(still, 1).value_or(Image{1, 1, {~0u}}).pixels[0] >> 24, 0u) << "alpha is all zero";
}

// The last that passes, and the first that does not.
TEST(Guard, RefusesWhatCostsTooMuch) {
    const std::string png = Sample("quad.png"), jpeg = Sample("progressive.jpg"), bmp = Sample("quad.bmp");
    const auto padded = [&png](std::size_t size) { return png + std::string(size - png.size(), 't'); };
    const auto flat = [](uint32_t w, uint32_t h, int depth, int color_type, bool interlaced,
                         std::size_t rows) {
        return PngFile(w, h, depth, color_type, interlaced, Deflated(std::string(rows, '\0')));
    };
    // In front of the row so many blocks of deflate that hold nothing: stored ones of no length.
    const auto empty_blocks = [](int count) {
        std::string blocks = "\x78\x9C";
        for (int i = 0; i < count; ++i) blocks += "\0\0\0\xFF\xFF"s;
        return PngFile(4, 1, 8, 0, false, blocks + "\1\5\0\xFA\xFF\0\0\0\0\0\0\5\0\1"s);
    };
    const auto packed_bmp = [&bmp](std::string_view width) {  // 8 bits a pixel, in runs
        return Replaced(Replaced(bmp, 28, "\x08\0\1"sv), 18, width);
    };
    const auto wide = [](int w, int h) { return ProgressiveJpeg(w, h, 1, 0); };
    const std::size_t jpeg_frame = jpeg.find("\xFF\xC2");
    struct {
        const char* why;
        std::string passes, refused;  // passes: none where the smallest is too much
    } rows[] = {
        {"16 MB", padded(kMaxPictureFile), padded(kMaxPictureFile + 1)},
        {"a PNG's side", flat(4'096, 1, 1, 0, false, 513), flat(4'097, 1, 1, 0, false, 514)},
        {"a side below none", "", Sample("huge.png")},
        {"8-bit pixels", flat(4'096, 3'072, 8, 6, false, 16'385 * 3'072),
         flat(4'096, 3'073, 8, 6, false, 16'385 * 3'073)},
        {"interlaced rows", flat(8, 8, 8, 0, true, 2 + 2 + 3 + 6 + 10 + 20 + 36), flat(8, 8, 8, 0, true, 78)},
        {"16-bit pixels", flat(2'900, 3'000, 16, 0, false, 5'801 * 3'000),
         flat(3'100, 3'000, 16, 0, false, 6'201 * 3'000)},
        {"rows behind the last", flat(8, 8, 8, 2, false, 65'000), flat(8, 8, 8, 2, false, 66'000)},
        {"blocks of nothing", empty_blocks(1'000), empty_blocks(1'100)},
        {"a damaged chunk", png, Replaced(png, png.size() - 16, "x")},
        {"no end", png, png.substr(0, png.size() - 12)},
        {"a JPEG's sides", wide(4'096, 4'096), wide(8, 4'097)},
        {"scans", ProgressiveJpeg(64, 64, 3, 63), ProgressiveJpeg(64, 64, 3, 64)},
        {"coefficients gone over", ProgressiveJpeg(4'096, 4'096, 1, 32),
         ProgressiveJpeg(4'096, 4'096, 1, 33)},
        {"coefficients held", ProgressiveJpeg(4'096, 4'096, 3, 0), ProgressiveJpeg(4'096, 4'096, 4, 0)},
        {"arithmetic codes", jpeg, Replaced(jpeg, jpeg_frame + 1, "\xCA")},
        {"12 bits a sample", jpeg, Replaced(jpeg, jpeg_frame + 4, "\x0C")},
        {"a GIF's sides", Replaced(Sample("two_frames.gif"), 6, "\0\x10\0\x10"sv),
         Replaced(Sample("two_frames.gif"), 6, "\1\x10")},
        {"a BMP's sides", packed_bmp("\0\x10"sv), packed_bmp("\1\x10"sv)},
        {"a BMP's rows", bmp, bmp.substr(0, bmp.size() - 1)},
        {"a BMP upside down", Replaced(bmp, 22, "\xFE\xFF\xFF\xFF"), Replaced(bmp, 22, "\0\0\0\x80"sv)},
        {"groups of codes", WebpOfManyGroups(256), WebpOfManyGroups(260)},
        {"groups in the alpha", "",
         WebpFile(RiffChunk("VP8X", std::string(10, '\0')) +
                  RiffChunk("ALPH", "\1" + WebpOfManyGroups(260).substr(25)) +
                  Replaced(Sample("orange.webp"), 26, "\4\1\4\1"sv).substr(12))},
        {"no picture", "", "<svg xmlns='http://www.w3.org/2000/svg' width='9' height='9'/>"},
        {"nothing", "", ""},
    };
    for (auto& [why, passes, refused] : rows) {
        EXPECT_TRUE(passes.empty() || KeepStillPicture(passes)) << why;
        EXPECT_FALSE(DecodeImage(refused, 64)) << why;
        EXPECT_FALSE(KeepStillPicture(refused)) << why;
    }
}

// Codes that make strings of up to 4,096 pixels: a decoder would make them all.
TEST(Guard, EndsAGifWithItsLastPixel) {
    BitWriter bits;
    bits.Put(4, 6);
    int next = 6, width = 3;
    for (int i = 0; i < 200'000; ++i) {  // each code the one that is just being made, then the longest
        bits.Put(static_cast<uint32_t>(std::min(next, 4'095)), width);
        if (next < 4'096 && ++next == 1 << width && width < 12) ++width;
    }
    std::string file("GIF89a\x40\0\x40\0\x80\0\0\0\0\0\xFF\0\0,\0\0\0\0\x40\0\x40\0\0\2", 30);
    for (std::size_t at = 0; at < bits.bytes.size(); at += 255) {
        const std::string part = bits.bytes.substr(at, 255);
        file += static_cast<char>(part.size()) + part;
    }
    file += "\0;"s;
    std::string kept = file;
    ASSERT_TRUE(KeepStillPicture(kept));
    // 1 + 2 + ... + 90 is just below 4,096 pixels, and the first ninety codes take less than 100 bytes.
    EXPECT_LT(kept.size(), 30u + 100);
    const auto image = DecodeImage(file, 64);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->pixels, Pixels(64 * 64, 0xFF000000));
}

TEST(Resize, KeepsColoursAndLetsTransparentPixelsLendNone) {
    const Image flat = {64, 32, Pixels(64 * 32, 0xFF38D48C)};
    EXPECT_EQ(ResizeImage(flat, 100, 7).pixels, Pixels(100 * 7, 0xFF38D48C));
    // Half opaque red, half transparent green: between them it is a fainter red.
    Image halves = {64, 1, Pixels(64, 0xFFFF0000)};
    for (std::size_t x = 0; x < 64; x += 2) halves.pixels[x] = 0x0000FF00;
    for (const uint32_t pixel : ResizeImage(halves, 8, 1).pixels) {
        EXPECT_NEAR(pixel >> 24, 128, 24);
        EXPECT_LE(pixel >> 8 & 255, 2u);
        EXPECT_GE(pixel >> 16 & 255, 250u);
    }
    EXPECT_TRUE(ResizeImage({2, 2, {1, 2, 3}}, 4, 4).Empty());
}

}  // namespace
}  // namespace brickfall
