// Shapes, fonts and lines of text, by pixels whose colour follows from the geometry.
#include <gtest/gtest.h>

#include <string>

#include "tests/platform/platform_fixture.h"

namespace brickfall {
namespace {

constexpr Color kInk = Rgb(0xFF8C28);
constexpr Color kPaper = Rgb(0x040A08);

Image Drawn(Size size, const std::function<void(Canvas&)>& body, int scale = 1) {
    const auto on_paper = [&](Canvas& canvas) {
        canvas.Fill({0, 0, size.w, size.h}, kPaper);
        body(canvas);
    };
    return DrawToImage(size, on_paper, scale);
}

TEST(Canvas, CountsInItsUnitsAtAnyDensity) {
    const auto draw = [](Canvas& c) {
        c.Line({2, 4}, {5, 4}, kInk, 2);
        c.FillEllipse({10, 10, 20, 20}, kInk);
    };
    const Image image = Drawn({40, 40}, draw, /*scale=*/2);
    EXPECT_EQ(Inked(image, {0, 0, 80, 16}, kPaper), 4 * 2 * 2 * 2) << "the line, both ends included";
    EXPECT_EQ(Inked(image, {0, 16, 80, 64}, kPaper), Inked(image, {20, 20, 40, 40}, kPaper)) << "the disc";
    EXPECT_NE(PixelOf(image, 40, 20), kPaper) << "it touches the edge of its box";
}

TEST(Fonts, FitTheHeightsThatTheCabinetAsksFor) {
    const auto font_of = [](const char* family, int height, int weight) {
        return MakeFont(family, height, weight, FontQuality::kClearType);
    };
    for (const auto& [family, height, weight] : {std::tuple("Segoe UI", 16, 400),
                                                 {"Segoe UI", 72, 900},
                                                 {"Georgia", 28, 700},
                                                 {"Consolas", 22, 600},
                                                 {"No Such Face", 20, 400}}) {
        SCOPED_TRACE(family + std::to_string(height));
        const Font font = font_of(family, height, weight);
        const auto [w, h] = MeasureText(font, "Wg");
        EXPECT_LE(h, height);
        EXPECT_GE(h, height - 2) << "the largest that fits";
        EXPECT_GT(w, height / 2);
        // A line holds its glyphs, from the ascenders to the descenders.
        const Rect box = {10, 10, w, h};
        const Image image = Drawn({w + 20, h + 20}, [&](Canvas& c) { c.Text(box, "Wg", font, kInk); });
        EXPECT_EQ(PixelOf(image, 10 + w / 2, 9), kPaper);
        EXPECT_GT(Inked(image, {0, 10 + h * 2 / 3, image.w, 1}, kPaper), 0);
    }
    const auto width = [](const Font& font, std::string_view text) { return MeasureText(font, text).w; };
    const Font mono = font_of("Consolas", 22, 600);
    EXPECT_EQ(width(mono, "iiii"), width(mono, "WWWW"));
    EXPECT_EQ(width(mono, ""), 0);
    EXPECT_GT(width(font_of("Segoe UI", 40, 900), "GAME"), width(font_of("Segoe UI", 40, 400), "GAME"));
}

TEST(Canvas, AlignsTextClipsItAndEndsItInAnEllipsis) {
    const Font font = MakeFont("Segoe UI", 18, 400, FontQuality::kAntialiased);
    // The leftmost and rightmost columns with ink, or -1, of text in a box from 10 to 109.
    const auto columns = [&](std::string_view text, AlignX align, bool ellipsis = false) {
        const Image image = Drawn({140, 40}, [&](Canvas& c) {
            c.Text({10, 10, 100, 20}, text, font, kInk, align, AlignY::kCentre, ellipsis);
        });
        std::pair<int, int> found = {-1, -1};
        for (int x = 0; x < image.w; ++x) {
            if (Inked(image, {x, 0, 1, image.h}, kPaper) == 0) continue;
            found = {found.first < 0 ? x : found.first, x};
        }
        return found;
    };
    const auto left = columns("HH", AlignX::kLeft), centred = columns("HH", AlignX::kCentre);
    EXPECT_NEAR(left.first, 11, 2);
    EXPECT_NEAR(columns("HH", AlignX::kRight).second, 108, 2);
    EXPECT_NEAR(centred.first - 10, 109 - centred.second, 2);

    const std::string text(60, 'H');
    for (const AlignX x : {AlignX::kLeft, AlignX::kCentre, AlignX::kRight}) {
        EXPECT_GE(columns(text, x).first, 10);
        EXPECT_LE(columns(text, x).second, 109);
    }
    const auto ended = columns(text, AlignX::kLeft, /*ellipsis=*/true);
    EXPECT_LE(ended.second, 109);
    EXPECT_GE(ended.second, 109 - MeasureText(font, "H").w);
    EXPECT_EQ(columns("HH", AlignX::kLeft, true), left) << "what fits stays";
    EXPECT_EQ(columns("\x01\n\t", AlignX::kLeft), std::pair(-1, -1)) << "control characters are blanks";
    EXPECT_NE(columns("\xFF\xFE", AlignX::kLeft), std::pair(-1, -1)) << "no UTF-8, and seen as such";
    EXPECT_LE(columns(std::string(1'000'000, 'H'), AlignX::kLeft, true).second, 109);
}

}  // namespace
}  // namespace brickfall
