// canvas.h - flat drawing into a window during its paint message, or into a picture. Coordinates are logical
// pixels; on a screen of higher density each covers several of the device's. Ellipses, round corners and text
// are smoothed, everything else is sharp. Main thread only.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "platform/geometry.h"
#include "platform/image.h"

namespace brickfall {

struct Color {
    uint8_t r = 0;
    uint8_t g = 0;
    uint8_t b = 0;
    bool operator==(const Color&) const = default;
};

constexpr Color Rgb(uint32_t hex) {  // 0xRRGGBB
    return {static_cast<uint8_t>(hex >> 16), static_cast<uint8_t>(hex >> 8), static_cast<uint8_t>(hex)};
}

// How edges of glyphs are smoothed.
enum class FontQuality { kAntialiased, kClearType };

class FontImpl;
using Font = std::shared_ptr<const FontImpl>;

// `height` is that of a line: ascent and descent together. The named family, or else a close free one. Weight
// 400 is regular, 700 bold, 900 black.
Font MakeFont(std::string_view family, int height, int weight, FontQuality quality);

Size MeasureText(const Font& font, std::string_view text);  // of one line

enum class AlignX { kLeft, kCentre, kRight };
enum class AlignY { kTop, kCentre, kBottom };

class Canvas {
  public:
    virtual ~Canvas() = default;

    virtual Size Extent() const = 0;
    virtual double Density() const = 0;  // device pixels a logical one
    virtual void Fill(const Rect& rect, Color color) = 0;
    virtual void Pixel(Point at, Color color) = 0;
    // Horizontal or vertical lines are sharp; others are smoothed. Both ends are drawn.
    virtual void Line(Point from, Point to, Color color, int width = 1) = 0;
    // The outline lies inside the rectangle. `corner` is the whole corner ellipse's side, twice its radius.
    virtual void FrameRoundRect(const Rect& rect, int corner, Color color, int width = 1) = 0;
    virtual void FillEllipse(const Rect& box, Color color) = 0;
    virtual void FrameEllipse(const Rect& box, Color color, double width = 1) = 0;

    // One line of UTF-8 text, clipped to the rectangle; with `ellipsis` a text too long ends in one. Bytes
    // that are no UTF-8 show as replacement characters, control characters as blanks.
    virtual void Text(const Rect& rect, std::string_view text, const Font& font, Color color,
                      AlignX x = AlignX::kLeft, AlignY y = AlignY::kTop, bool ellipsis = false) = 0;

    // Scaled into the rectangle with high quality, over what is there.
    virtual void Draw(const Image& image, const Rect& rect) = 0;

    // What `body` draws is clipped.
    virtual void ClipRoundRect(const Rect& rect, int corner, const std::function<void()>& body) = 0;
    virtual void ClipEllipse(const Rect& box, const std::function<void()>& body) = 0;
};

// The text's first character in upper case, as one character; UTF-8. Empty for an empty text.
std::string UpperInitial(std::string_view text);

// Lines of one pixel along the inside of the rectangle's edges.
void Bevel(Canvas& canvas, const Rect& rect, Color top_left, Color bottom_right);
void FrameRect(Canvas& canvas, const Rect& rect, Color color, int width);  // along the inside, too

// Draws into a picture instead of a window; `scale` device pixels a logical one.
Image DrawToImage(Size size, const std::function<void(Canvas&)>& body, int scale = 1);

// The same over the pixels of a picture that is opaque, and stays so. Fast: nothing is copied.
void PaintOnImage(Image& image, const std::function<void(Canvas&)>& body, int scale = 1);

}  // namespace brickfall
