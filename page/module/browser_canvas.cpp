#include "page/module/browser_canvas.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <string>

#include "platform/typefaces.h"

#define FROM_PAGE(name) __attribute__((import_module("page"), import_name(name)))

namespace brickfall {

// `css` is a font as a style sheet names it. A line's width of 0 fills.
extern "C" {
FROM_PAGE("makeFont") int PageMakeFont(const char* css, std::size_t size);
FROM_PAGE("ascent") double PageAscent(int font);
FROM_PAGE("descent") double PageDescent(int font);
FROM_PAGE("measure") double PageMeasure(int font, const char* text, std::size_t size);
FROM_PAGE("fill") void PageFill(int x, int y, int w, int h, uint32_t color);
FROM_PAGE("line") void PageLine(double x1, double y1, double x2, double y2, uint32_t color, double width);
FROM_PAGE("roundRect")
void PageRoundRect(double x, double y, double w, double h, double radius, uint32_t color, double width);
FROM_PAGE("ellipse")
void PageEllipse(double x, double y, double w, double h, uint32_t color, double width);
FROM_PAGE("text")
void PageText(int x, int baseline, const char* text, std::size_t size, int font, uint32_t color);
FROM_PAGE("image") void PageImage(const uint8_t* rgba, int image_w, int image_h, int x, int y, int w, int h);
FROM_PAGE("clipRoundRect") void PageClipRoundRect(int x, int y, int w, int h, double radius);
FROM_PAGE("clipEllipse") void PageClipEllipse(int x, int y, int w, int h);
FROM_PAGE("unclip") void PageUnclip();
}

class FontImpl {
  public:
    int number = 0;  // the page's
    int ascent = 0;
    int height = 0;
};

namespace {

constexpr std::string_view kEllipsis = "\u2026";

uint32_t Code(Color color) { return uint32_t{color.r} << 16 | uint32_t{color.g} << 8 | color.b; }

int Start(int space, int used, bool centre, bool end) {
    if (centre) return (space - used) / 2;
    return end ? space - used : 0;
}

std::string CssFont(std::string_view family, int pixels, int weight) {
    std::string css = std::to_string(weight) + ' ' + std::to_string(pixels) + "px \"";
    css.append(family).append("\", ");
    TypefaceKind kind = TypefaceKind::kSans;
    for (const Typeface& typeface : kTypefaces) {
        if (family != typeface.asked) continue;
        kind = typeface.kind;
        css.append("\"").append(typeface.stand_in).append("\", ");
    }
    return css + GenericName(kind);
}

// Control characters become blanks; of bytes that are no UTF-8 the page makes replacement characters.
std::string OneLine(std::string_view text) {
    std::string line(text);
    for (char& c : line) {
        if (static_cast<unsigned char>(c) < 32 || c == 127) c = ' ';
    }
    return line;
}

int WidthOf(const FontImpl& font, std::string_view line) {
    return static_cast<int>(std::ceil(PageMeasure(font.number, line.data(), line.size()) - 1e-6));
}

void Elide(const FontImpl& font, int width, std::string& line) {
    if (WidthOf(font, line) <= width) return;
    std::string shorter = line;
    do {
        while (!shorter.empty() && (shorter.back() & 0xC0) == 0x80) shorter.pop_back();
        if (!shorter.empty()) shorter.pop_back();
        line = shorter;
        line += kEllipsis;
    } while (!shorter.empty() && WidthOf(font, line) > width);
}

}  // namespace

Font MakeFont(std::string_view family, int height, int weight, FontQuality) {
    auto font = std::make_shared<FontImpl>();
    // The largest size whose line fits.
    for (int pixels = std::clamp(height, 1, 1'000); pixels >= 1; --pixels) {
        const std::string css = CssFont(family, pixels, weight);
        font->number = PageMakeFont(css.data(), css.size());
        font->ascent = static_cast<int>(std::lround(PageAscent(font->number)));
        font->height = font->ascent + static_cast<int>(std::lround(PageDescent(font->number)));
        if (font->height <= height) break;
    }
    return font;
}

Size MeasureText(const Font& font, std::string_view text) {
    if (font == nullptr) return {};
    return {WidthOf(*font, OneLine(text)), font->height};
}

void BrowserCanvas::Fill(const Rect& rect, Color color) {
    if (rect.w > 0 && rect.h > 0) PageFill(rect.x, rect.y, rect.w, rect.h, Code(color));
}

void BrowserCanvas::Pixel(Point at, Color color) { Fill({at.x, at.y, 1, 1}, color); }

void BrowserCanvas::Line(Point from, Point to, Color color, int width) {
    if (width < 1) return;
    const int before = width / 2;
    if (from.y == to.y) {
        Fill({std::min(from.x, to.x), from.y - before, std::abs(from.x - to.x) + 1, width}, color);
    } else if (from.x == to.x) {
        Fill({from.x - before, std::min(from.y, to.y), width, std::abs(from.y - to.y) + 1}, color);
    } else {
        const double middle = width % 2 == 1 ? 0.5 : 0;
        PageLine(from.x + middle, from.y + middle, to.x + middle, to.y + middle, Code(color), width);
    }
}

void BrowserCanvas::FrameRoundRect(const Rect& rect, int corner, Color color, int width) {
    if (width < 1 || rect.w < width || rect.h < width) return;
    if (corner <= 0) return FrameRect(*this, rect, color, width);
    const double half = width / 2.0;
    PageRoundRect(rect.x + half, rect.y + half, rect.w - width, rect.h - width,
                  std::max(0.0, (corner - width) / 2.0), Code(color), width);
}

void BrowserCanvas::FillEllipse(const Rect& box, Color color) {
    PageEllipse(box.x, box.y, box.w, box.h, Code(color), 0);
}

void BrowserCanvas::FrameEllipse(const Rect& box, Color color, double width) {
    PageEllipse(box.x + width / 2, box.y + width / 2, box.w - width, box.h - width, Code(color), width);
}

void BrowserCanvas::Text(const Rect& rect, std::string_view text, const Font& font, Color color, AlignX x,
                         AlignY y, bool ellipsis) {
    if (font == nullptr || text.empty() || rect.w <= 0 || rect.h <= 0) return;
    std::string line = OneLine(text);
    if (ellipsis) Elide(*font, rect.w, line);
    const int left = rect.x + Start(rect.w, WidthOf(*font, line), x == AlignX::kCentre, x == AlignX::kRight);
    const int top = rect.y + Start(rect.h, font->height, y == AlignY::kCentre, y == AlignY::kBottom);
    PageClipRoundRect(rect.x, rect.y, rect.w, rect.h, 0);
    PageText(left, top + font->ascent, line.data(), line.size(), font->number, Code(color));
    PageUnclip();
}

void BrowserCanvas::Draw(const Image& image, const Rect& rect) {
    if (image.w < 1 || image.h < 1 || rect.w <= 0 || rect.h <= 0) return;
    std::string rgba;
    rgba.reserve(4 * image.pixels.size());
    for (const uint32_t pixel : image.pixels) {
        for (const int shift : {16, 8, 0, 24}) rgba.push_back(static_cast<char>(pixel >> shift));
    }
    PageImage(reinterpret_cast<const uint8_t*>(rgba.data()), image.w, image.h, rect.x, rect.y, rect.w,
              rect.h);
}

void BrowserCanvas::ClipRoundRect(const Rect& rect, int corner, const std::function<void()>& body) {
    PageClipRoundRect(rect.x, rect.y, rect.w, rect.h, corner / 2.0);
    body();
    PageUnclip();
}

void BrowserCanvas::ClipEllipse(const Rect& box, const std::function<void()>& body) {
    PageClipEllipse(box.x, box.y, box.w, box.h);
    body();
    PageUnclip();
}

}  // namespace brickfall
