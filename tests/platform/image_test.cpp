// Pictures of every kind, whole and broken. The files are those that the fuzz target starts from.
#include "platform/image.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>

#include "base/files.h"

namespace brickfall {
namespace {

std::string Sample(const std::string& name) {
    return ReadFile(std::string(BRICKFALL_SOURCE_DIR) + "/fuzz/corpus/image/" + name).value_or("");
}

using Pixels = std::vector<uint32_t>;

TEST(Decode, ReadsEveryKind) {
    const auto png = DecodeImage(Sample("quad.png"));
    ASSERT_TRUE(png);
    EXPECT_EQ(png->w, 2);
    EXPECT_EQ(png->h, 2);
    EXPECT_EQ(Pixels(png->pixels.begin(), png->pixels.end() - 1),
              (Pixels{0xFFFF0000, 0x8000FF00, 0xFF0000FF}))
        << "not premultiplied";
    EXPECT_EQ(png->pixels.back() >> 24, 0u);
    const auto bmp = DecodeImage(Sample("quad.bmp"));  // its last row comes first
    ASSERT_TRUE(bmp);
    EXPECT_EQ(bmp->pixels, (Pixels{0xFFFF0000, 0xFF00FF00, 0xFF0000FF, 0xFFFFFFFF}));
    const auto gif = DecodeImage(Sample("two_frames.gif"));
    ASSERT_TRUE(gif);
    EXPECT_EQ(gif->pixels, (Pixels{0xFFFF0000})) << "the first frame";
    for (const char* const name : {"orange.jpg", "progressive.jpg", "orange.webp"}) {
        SCOPED_TRACE(name);
        const auto image = DecodeImage(Sample(name));
        ASSERT_TRUE(image);
        EXPECT_EQ(image->pixels.size(), 256u);
        const uint32_t pixel = image->pixels[100];
        EXPECT_NEAR(pixel >> 16 & 255, 255, 4);
        EXPECT_NEAR(pixel >> 8 & 255, 140, 4);
        EXPECT_NEAR(pixel & 255, 40, 4);
    }
}

TEST(Decode, ReducesAPhotograph) {
    std::string photo = Sample("orange.jpg");
    const std::size_t frame = photo.find("\xFF\xC0");  // then length, precision, height and width
    ASSERT_NE(frame, std::string::npos);
    photo.replace(frame + 5, 4, "\x0B\xB8\x0F\xA0");  // 3,000 by 4,000
    const auto image = DecodeImage(photo);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->w, 1'024);
    EXPECT_EQ(image->h, 768);
    EXPECT_EQ(image->pixels.size(), 1'024u * 768);
}

TEST(Decode, RefusesWhatIsNoPictureOrTooLarge) {
    EXPECT_FALSE(DecodeImage(""));
    EXPECT_FALSE(DecodeImage("not a picture"));
    EXPECT_FALSE(DecodeImage("<svg xmlns='http://www.w3.org/2000/svg' width='9' height='9'/>"));
    EXPECT_FALSE(DecodeImage(Sample("huge.png"))) << "100,000 by 100,000";
    EXPECT_FALSE(DecodeImage(Sample("wide.png"))) << "one more than the longest side";
    std::string bmp = Sample("quad.bmp");
    for (const char* const side : {"\xFF\xFF\xFF\x7F", "\0\0\0\x80", "\0\0\0\0"}) {
        bmp.replace(18, 4, side, 4);
        EXPECT_FALSE(DecodeImage(bmp));
    }
}

TEST(Decode, TakesBrokenFilesAsTheyCome) {
    std::mt19937 random(20'250'101);
    for (const char* const name :
         {"quad.png", "quad.bmp", "two_frames.gif", "orange.jpg", "progressive.jpg", "orange.webp"}) {
        const std::string whole = Sample(name);
        ASSERT_FALSE(whole.empty()) << name;
        for (int round = 0; round < 150; ++round) {
            std::string broken = whole.substr(0, random() % (whole.size() + 1));
            for (unsigned i = random() % 4; i > 0 && !broken.empty(); --i) {
                broken[random() % broken.size()] = static_cast<char>(random());
            }
            const auto image = DecodeImage(broken);
            if (image) {
                EXPECT_EQ(image->pixels.size(), static_cast<std::size_t>(image->w * image->h)) << name;
                EXPECT_LE(std::max(image->w, image->h), kMaxImageSide);
            }
        }
    }
}

TEST(Resize, KeepsColoursAndLetsTransparentPixelsLendNone) {
    const Image flat = {64, 32, Pixels(64 * 32, 0xFF38D48C)};
    for (const auto& [w, h] : {std::pair(16, 16), std::pair(1, 1), std::pair(100, 7)}) {
        const Image resized = ResizeImage(flat, w, h);
        EXPECT_EQ(resized.pixels, Pixels(static_cast<std::size_t>(w * h), 0xFF38D48C));
    }
    // Half opaque red, half transparent green: between them it is a fainter red.
    Image halves = {64, 1, Pixels(64, 0xFFFF0000)};
    for (std::size_t x = 0; x < 64; x += 2) halves.pixels[x] = 0x0000FF00;
    for (const uint32_t pixel : ResizeImage(halves, 8, 1).pixels) {
        EXPECT_NEAR(pixel >> 24, 128, 24);
        EXPECT_LE(pixel >> 8 & 255, 2u);
        EXPECT_GE(pixel >> 16 & 255, 250u);
    }
    EXPECT_TRUE(ResizeImage(flat, 0, 5).Empty());
    EXPECT_TRUE(ResizeImage({2, 2, {1, 2, 3}}, 4, 4).Empty());
}

}  // namespace
}  // namespace brickfall
