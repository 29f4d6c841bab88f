// color_math.h - how colours look to people: the contrast of two, by WCAG 2.1.
#pragma once

#include <algorithm>
#include <cmath>

#include "platform/canvas.h"

namespace brickfall {

// A channel's light, from 0 to 1; the curve of sRGB.
inline double Linear(uint8_t channel) {
    const double value = channel / 255.0;
    return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
}

inline double Luminance(Color color) {
    return 0.2126 * Linear(color.r) + 0.7152 * Linear(color.g) + 0.0722 * Linear(color.b);
}

inline double Contrast(Color a, Color b) {
    const auto [low, high] = std::minmax({Luminance(a), Luminance(b)});
    return (high + 0.05) / (low + 0.05);
}

}  // namespace brickfall
