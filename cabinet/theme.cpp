#include "cabinet/theme.h"

#include "cabinet/images.h"

namespace brickfall {

Theme& theme = *new Theme;

void MakeTheme() {
    using enum FontQuality;
    theme.font_button = MakeFont("Segoe UI", 18, 400, kAntialiased);
    theme.font_small = MakeFont("Segoe UI", 16, 400, kClearType);
    theme.font_title = MakeFont("Georgia", 28, 700, kClearType);
    theme.font_mono = MakeFont("Consolas", 22, 600, kClearType);
    theme.font_body = MakeFont("Segoe UI", 18, 400, kAntialiased);
    theme.font_heading = MakeFont("Georgia", 32, 700, kAntialiased);
    theme.font_huge = MakeFont("Segoe UI", 72, 900, kClearType);
    theme.font_large = MakeFont("Segoe UI", 40, 700, kClearType);
}

void DropTheme() { theme = Theme(); }

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
