// Drawing, by probes of pixels whose colour follows from the geometry.
#include <gtest/gtest.h>

#include <string>

#include "tests/platform/platform_fixture.h"

namespace brickfall {
namespace {

constexpr Color kInk = Rgb(0xFF8C28);
constexpr Color kPaper = Rgb(0x040A08);

using Drawing = std::function<void(Canvas&)>;

Image OnPaper(Size size, const Drawing& body, int scale = 1) {
    return DrawToImage(
        size,
        [&](Canvas& canvas) {
            EXPECT_EQ(canvas.Extent(), size);
            canvas.Fill({0, 0, size.w, size.h}, kPaper);
            body(canvas);
        },
        scale);
}

Image Drawn(const Drawing& body, int scale = 1) { return OnPaper({40, 30}, body, scale); }

// The picture as rows of '#' for ink, '.' for paper and '+' for anything between.
std::vector<std::string> Rows(const Image& image, const Rect& part) {
    std::vector<std::string> rows;
    for (int y = part.y; y < part.Bottom(); ++y) {
        std::string row;
        for (int x = part.x; x < part.Right(); ++x) {
            row += PixelOf(image, x, y) == kInk ? '#' : PixelOf(image, x, y) == kPaper ? '.' : '+';
        }
        rows.push_back(row);
    }
    return rows;
}

TEST(Canvas, DrawsStraightThingsSharp) {
    const auto fill = [](Rect rect) -> Drawing { return [=](Canvas& c) { c.Fill(rect, kInk); }; };
    const auto line = [](Point from, Point to, int width = 1) -> Drawing {
        return [=](Canvas& c) { c.Line(from, to, kInk, width); };
    };
    const auto frame = [](Rect rect, int width) -> Drawing {
        return [=](Canvas& c) { c.FrameRoundRect(rect, 0, kInk, width); };
    };
    const Point corner = {4, 3};
    const Rect square = {0, 0, 4, 4};
    const struct {
        const char* what;
        Drawing body;
        std::vector<std::string> expected;
    } kCases[] = {
        {"fill", fill({1, 1, 3, 2}), {".....", ".###.", ".###.", "....."}},
        {"empty fill", fill({3, 3, -2, 0}), {".....", ".....", ".....", "....."}},
        {"pixel", [=](Canvas& c) { c.Pixel(corner, kInk); }, {".....", ".....", ".....", "....#"}},
        {"line with both ends", line({3, 1}, {1, 1}), {".....", ".###.", ".....", "....."}},
        {"line down", line({2, 0}, {2, 2}), {"..#..", "..#..", "..#..", "....."}},
        {"line of one", line({2, 2}, {2, 2}), {".....", ".....", "..#..", "....."}},
        {"wide line", line({1, 1}, {2, 1}, 3), {".##..", ".##..", ".##..", "....."}},
        {"bevel",
         [=](Canvas& c) { Bevel(c, square, kInk, Rgb(0xFFFFFF)); },
         {"###+.", "#..+.", "#..+.", "++++."}},
        {"frame without corners", frame({1, 0, 4, 4}, 1), {".####", ".#..#", ".#..#", ".####"}},
        {"thick frame", frame({0, 0, 5, 4}, 2), {"#####", "#####", "#####", "#####"}},
    };
    for (const auto& a_case : kCases) {
        EXPECT_EQ(Rows(Drawn(a_case.body), {0, 0, 5, 4}), a_case.expected) << a_case.what;
    }
    const Image denser = Drawn([](Canvas& c) { c.Pixel({1, 1}, kInk); }, 2);
    EXPECT_EQ(denser.w, 80);
    EXPECT_EQ(Rows(denser, {1, 1, 4, 4}), (std::vector<std::string>{"....", ".##.", ".##.", "...."}));
    EXPECT_TRUE(DrawToImage({0, 5}, [](Canvas&) {}).Empty());
}

TEST(Canvas, RoundsWithinTheGivenRectangle) {
    const Rect box = {5, 5, 20, 20}, all = {0, 0, 40, 30};
    const Drawing fill_all = [&](Canvas& c) { c.Fill(all, kInk); };
    const struct {
        const char* what;
        Drawing body;
        bool middle, corner;
    } kCases[] = {
        {"disc", [&](Canvas& c) { c.FillEllipse(box, kInk); }, true, false},
        {"ring", [&](Canvas& c) { c.FrameEllipse(box, kInk, 2); }, false, false},
        {"round frame", [&](Canvas& c) { c.FrameRoundRect(box, 14, kInk); }, false, false},
        {"round clip", [&](Canvas& c) { c.ClipRoundRect(box, 14, [&] { fill_all(c); }); }, true, false},
        {"clipped disc", [&](Canvas& c) { c.ClipEllipse(box, [&] { fill_all(c); }); }, true, false},
        {"a clip's end",
         [&](Canvas& c) {
             c.ClipEllipse(box, [] {});
             c.Fill(box, kInk);
         },
         true, true},
    };
    for (const auto& a_case : kCases) {
        SCOPED_TRACE(a_case.what);
        const Image image = Drawn(a_case.body);
        EXPECT_EQ(Inked(image, all, kPaper), Inked(image, box, kPaper)) << "nothing outside";
        EXPECT_EQ(PixelOf(image, 15, 15) == kInk, a_case.middle);
        EXPECT_EQ(PixelOf(image, 5, 5) == kInk, a_case.corner);
        EXPECT_FALSE(PixelOf(image, 15, 5) == kPaper) << "it touches the edge of its box";
        EXPECT_FALSE(PixelOf(image, 24, 15) == kPaper);
    }
    // The straight parts of a round frame are as sharp as a line.
    const Image frame = Drawn([&](Canvas& c) { c.FrameRoundRect(box, 14, kInk); });
    EXPECT_EQ(Rows(frame, {13, 5, 4, 2}), (std::vector<std::string>{"####", "...."}));
}

TEST(Canvas, PutsPicturesOverWhatIsThere) {
    const Image picture = {2, 2, {0xFFFF0000, 0x00FFFFFF, 0x8000FF00, 0xFF0000FF}};
    const Image image = Drawn([&](Canvas& c) {
        c.Fill({0, 0, 40, 30}, Rgb(0x000000));
        c.Draw(picture, {1, 1, 2, 2});
        c.Draw(Image{2, 2, {1}}, {10, 10, 2, 2});  // not as many pixels as it says
        c.Draw(picture, {10, 10, 0, 2});
    });
    EXPECT_EQ(PixelOf(image, 1, 1), Rgb(0xFF0000));
    EXPECT_EQ(PixelOf(image, 2, 1), Rgb(0x000000));
    EXPECT_NEAR(PixelOf(image, 1, 2).g, 128, 1);
    EXPECT_EQ(PixelOf(image, 2, 2), Rgb(0x0000FF));
    EXPECT_EQ(PixelOf(image, 10, 10), Rgb(0x000000));

    const Image wide = {64, 64, std::vector<uint32_t>(64 * 64, 0xFF38D48C)};
    const Image scaled = Drawn([&](Canvas& c) { c.Draw(wide, {3, 3, 16, 16}); });
    EXPECT_EQ(PixelOf(scaled, 3, 3), Rgb(0x38D48C));
    EXPECT_EQ(PixelOf(scaled, 18, 18), Rgb(0x38D48C));
    EXPECT_EQ(PixelOf(scaled, 19, 18), kPaper);
}

TEST(Fonts, FitTheHeightsThatTheCabinetAsksFor) {
    const struct {
        const char* family;
        int height, weight;
    } kAsked[] = {{"Segoe UI", 16, 400}, {"Segoe UI", 40, 700}, {"Segoe UI", 72, 900},
                  {"Georgia", 28, 700},  {"Consolas", 22, 600}, {"No Such Face", 20, 400}};
    for (const auto& asked : kAsked) {
        SCOPED_TRACE(asked.family + std::to_string(asked.height));
        const Font font = MakeFont(asked.family, asked.height, asked.weight, FontQuality::kClearType);
        const Size size = MeasureText(font, "Wg");
        EXPECT_LE(size.h, asked.height);
        EXPECT_GE(size.h, asked.height - 2) << "the largest that fits";
        EXPECT_GT(size.w, asked.height / 2);
        EXPECT_EQ(MeasureText(font, "").w, 0);
        // A line holds its glyphs, from the ascenders to the descenders.
        const int h = size.h;
        const Image image = OnPaper({size.w + 20, h + 20}, [&](Canvas& c) {
            c.Text({10, 10, size.w, h}, "Wg", font, kInk);
        });
        EXPECT_EQ(PixelOf(image, 10 + size.w / 2, 9), kPaper);
        EXPECT_GT(Inked(image, {0, 10 + h * 2 / 3, image.w, 1}, kPaper), 0);
    }
    const Font mono = MakeFont("Consolas", 22, 600, FontQuality::kClearType);
    EXPECT_EQ(MeasureText(mono, "iiii").w, MeasureText(mono, "WWWW").w);
    const Font bold = MakeFont("Segoe UI", 40, 900, FontQuality::kAntialiased);
    const Font regular = MakeFont("Segoe UI", 40, 400, FontQuality::kAntialiased);
    EXPECT_GT(MeasureText(bold, "GAME OVER").w, MeasureText(regular, "GAME OVER").w);
}

TEST(Canvas, AlignsTextClipsItAndEndsItInAnEllipsis) {
    const Font font = MakeFont("Segoe UI", 18, 400, FontQuality::kAntialiased);
    // The leftmost and rightmost columns with ink, or -1, of text in a box from 10 to 109.
    const auto columns = [&](std::string_view text, AlignX align, bool ellipsis = false) {
        const Image image = OnPaper({140, 40}, [&](Canvas& c) {
            c.Text({10, 10, 100, 20}, text, font, kInk, align, AlignY::kCentre, ellipsis);
        });
        std::pair<int, int> found = {-1, -1};
        for (int x = 0; x < image.w; ++x) {
            if (Inked(image, {x, 0, 1, image.h}, kPaper) == 0) continue;
            found = {found.first < 0 ? x : found.first, x};
        }
        return found;
    };
    EXPECT_NEAR(columns("HH", AlignX::kLeft).first, 11, 2);
    EXPECT_NEAR(columns("HH", AlignX::kRight).second, 108, 2);
    const auto centred = columns("HH", AlignX::kCentre);
    EXPECT_NEAR(centred.first - 10, 109 - centred.second, 2);

    const std::string text(60, 'H');
    for (const AlignX x : {AlignX::kLeft, AlignX::kCentre, AlignX::kRight}) {
        EXPECT_GE(columns(text, x).first, 10);
        EXPECT_LE(columns(text, x).second, 109);
    }
    const auto ended = columns(text, AlignX::kLeft, /*ellipsis=*/true);
    EXPECT_LE(ended.second, 109);
    EXPECT_GE(ended.second, 109 - MeasureText(font, "H").w);
    EXPECT_EQ(columns("HH", AlignX::kLeft, true), columns("HH", AlignX::kLeft)) << "what fits stays";
    EXPECT_EQ(columns("\x01\n\t", AlignX::kLeft), std::pair(-1, -1)) << "control characters are blanks";
    EXPECT_NE(columns("\xFF\xFE", AlignX::kLeft), std::pair(-1, -1)) << "no UTF-8, and seen as such";
    EXPECT_LE(columns(std::string(1'000'000, 'H'), AlignX::kLeft, true).second, 109);
    EXPECT_EQ(columns("HH", AlignX::kLeft).first, columns(std::string("HH\0H", 4), AlignX::kLeft).first);
}

}  // namespace
}  // namespace brickfall
