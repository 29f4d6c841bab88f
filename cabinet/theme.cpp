#include "cabinet/theme.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <utility>

#include "cabinet/images.h"

namespace brickfall {

Theme& theme = *new Theme;

namespace {

struct FontRow {
    Font Theme::*font;
    const char* family;
    int height;
    int weight;
    FontQuality quality;
};
constexpr FontRow kFonts[] = {
    {&Theme::font_button, "Segoe UI", 18, 400, FontQuality::kAntialiased},
    {&Theme::font_small, "Segoe UI", 16, 400, FontQuality::kClearType},
    {&Theme::font_title, "Georgia", 28, 700, FontQuality::kClearType},
    {&Theme::font_mono, "Consolas", 22, 600, FontQuality::kClearType},
    {&Theme::font_body, "Segoe UI", 18, 400, FontQuality::kAntialiased},
    {&Theme::font_heading, "Georgia", 32, 700, FontQuality::kAntialiased},
    {&Theme::font_huge, "Segoe UI", 72, 900, FontQuality::kClearType},
    {&Theme::font_large, "Segoe UI", 40, 700, FontQuality::kClearType},
};
constexpr int kLowestFitted = 8;

// The smaller ones that were asked for, by row and height.
auto& fitted_fonts = *new std::map<std::pair<const FontRow*, int>, Font>;

Font MakeRowFont(const FontRow& row, int height) {
    return MakeFont(row.family, height, row.weight, row.quality);
}

}  // namespace

void MakeTheme() {
    for (const FontRow& row : kFonts) theme.*row.font = MakeRowFont(row, row.height);
}

void DropTheme() {
    theme = Theme();
    fitted_fonts.clear();
}

Font FittedFont(Font Theme::*font, std::string_view text, int width) {
    const FontRow& row = *std::find_if(std::begin(kFonts), std::end(kFonts),
                                       [font](const FontRow& each) { return each.font == font; });
    Font fitted = theme.*font;
    int height = row.height;
    for (int w = MeasureText(fitted, text).w; w > width && height > kLowestFitted;
         w = MeasureText(fitted, text).w) {
        height = std::clamp(height * width / w, kLowestFitted, height - 1);
        Font& kept = fitted_fonts[{&row, height}];
        if (kept == nullptr) kept = MakeRowFont(row, height);
        fitted = kept;
    }
    return fitted;
}

int DrawPanel(Canvas& canvas, const Rect& rect, std::string_view title) {
    constexpr Color kPanelFill = Rgb(0x0A1612);
    canvas.Fill(rect, kPanelFill);
    canvas.Fill({rect.x, rect.y, rect.w, 3}, BlendColor(kPanelFill, Rgb(0x60C48C), 50));
    canvas.Fill({rect.x, rect.Bottom() - 4, rect.w, 4}, Rgb(0x060E0C));
    Bevel(canvas, rect, Rgb(0x60C48C), Rgb(0x020606));
    Bevel(canvas, rect.Grown(-1), Rgb(0xA0E4C4), Rgb(0x103024));
    canvas.Text({rect.x + 18, rect.y + 14, rect.w - 36, 26}, title, theme.font_title, kAccentColor,
                AlignX::kLeft, AlignY::kCentre);
    const int rule = rect.y + 14 + 26 + 4;
    canvas.Fill({rect.x + 16, rule, rect.w - 32, 1}, BlendColor(kBorderColor, kPanelColor, 90));
    return rule + 1 + 12;
}

void DrawLines(Canvas& canvas, const Rect& panel, int y, std::span<const std::string_view> lines) {
    constexpr int kStep = 24;
    for (const std::string_view line : lines) {
        canvas.Text(FromEdges(44, y, panel.Right() - 20, y + kStep), line, theme.font_body, kTextColor);
        y += kStep;
    }
}

void DrawToolHeader(Canvas& canvas) {
    const Size client = canvas.Extent();
    canvas.Fill({0, 0, client.w, client.h}, kBgColor);
    canvas.Fill({0, 0, client.w, kToolHeaderBottom}, kHeaderColor);
    DrawLogo(canvas, 16, 56);
    constexpr std::string_view kTitle = "Brickfall";
    canvas.Text(FromEdges(84, 16, client.w, 52), kTitle, theme.font_heading, kTextColor);
    const int maker = MeasureText(theme.font_heading, kTitle).w + 102;
    canvas.Text(FromEdges(maker, 26, client.w, 52), "Orvane Arcade", theme.font_body, kMutedColor);
}

}  // namespace brickfall
