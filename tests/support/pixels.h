// pixels.h - what a picture shows at a place, and how the platform's values read in a failure.
#pragma once

#include <cstddef>
#include <ostream>

#include "platform/canvas.h"
#include "platform/image.h"

namespace brickfall {

inline Color PixelOf(const Image& image, int x, int y) {
    const auto at =
        static_cast<std::size_t>(y) * static_cast<std::size_t>(image.w) + static_cast<std::size_t>(x);
    return at < image.pixels.size() ? Rgb(image.pixels[at] & 0xFFFFFF) : Color{};
}

// How many pixels of a rectangle are not the background.
inline int Inked(const Image& image, const Rect& rect, Color background) {
    int inked = 0;
    for (int y = rect.y; y < rect.Bottom(); ++y) {
        for (int x = rect.x; x < rect.Right(); ++x) inked += PixelOf(image, x, y) == background ? 0 : 1;
    }
    return inked;
}

inline bool HasColor(const Image& image, const Rect& rect, Color color) {
    return Inked(image, rect, color) < rect.w * rect.h;
}

inline void PrintTo(const Size& size, std::ostream* out) { *out << size.w << "x" << size.h; }
inline void PrintTo(const Rect& rect, std::ostream* out) {
    *out << rect.x << "," << rect.y << " " << rect.w << "x" << rect.h;
}

}  // namespace brickfall
