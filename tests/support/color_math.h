// color_math.h - how colours look to people: the contrast of two by WCAG 2.1, their difference by CIEDE2000,
// and what is left of one without a kind of cone.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "platform/canvas.h"

namespace brickfall {

// A channel's light, from 0 to 1; the curve of sRGB.
inline double Linear(uint8_t channel) {
    const double value = channel / 255.0;
    return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
}

using Triple = std::array<double, 3>;

inline Triple LinearOf(Color color) { return {Linear(color.r), Linear(color.g), Linear(color.b)}; }

inline Triple Times(const std::array<Triple, 3>& matrix, const Triple& v) {
    Triple product{};
    for (std::size_t i = 0; i < 3; ++i) {
        product[i] = matrix[i][0] * v[0] + matrix[i][1] * v[1] + matrix[i][2] * v[2];
    }
    return product;
}

// Machado, Oliveira and Fernandes 2009, at full severity; of linear light.
inline constexpr std::array<Triple, 3> kNormal = {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
inline constexpr std::array<Triple, 3> kProtanopia = {
    {{0.152286, 1.052583, -0.204868}, {0.114503, 0.786281, 0.099216}, {-0.003882, -0.048116, 1.051998}}};
inline constexpr std::array<Triple, 3> kDeuteranopia = {
    {{0.367322, 0.860646, -0.227968}, {0.280085, 0.672501, 0.047413}, {-0.011820, 0.042940, 0.968881}}};
inline constexpr std::array<Triple, 3> kTritanopia = {
    {{1.255528, -0.076749, -0.178779}, {-0.078411, 0.930809, 0.147602}, {0.004733, 0.691367, 0.303900}}};

inline Triple Seen(const std::array<Triple, 3>& eyes, Color color) {
    Triple light = Times(eyes, LinearOf(color));
    for (double& channel : light) channel = std::clamp(channel, 0.0, 1.0);
    return light;
}

// CIELAB under D65, of linear light in sRGB's primaries.
inline Triple Lab(const Triple& light) {
    constexpr std::array<Triple, 3> kToXyz = {{{0.4124564, 0.3575761, 0.1804375},
                                               {0.2126729, 0.7151522, 0.0721750},
                                               {0.0193339, 0.1191920, 0.9503041}}};
    constexpr Triple kWhite = {0.95047, 1, 1.08883};
    Triple f = Times(kToXyz, light);
    for (std::size_t i = 0; i < 3; ++i) {
        const double t = f[i] / kWhite[i];
        f[i] = t > 216.0 / 24'389 ? std::cbrt(t) : (24'389.0 / 27 * t + 16) / 116;
    }
    return {116 * f[1] - 16, 500 * (f[0] - f[1]), 200 * (f[1] - f[2])};
}

// Sharma, Wu and Dalal 2005, with all weights 1; its names.
inline double Ciede2000(const Triple& lab1, const Triple& lab2) {
    constexpr double kDegree = std::numbers::pi / 180;
    const auto pow7 = [](double c) { return std::pow(c, 7) / (std::pow(c, 7) + std::pow(25.0, 7)); };
    const double mean_c = (std::hypot(lab1[1], lab1[2]) + std::hypot(lab2[1], lab2[2])) / 2;
    const double g = 0.5 * (1 - std::sqrt(pow7(mean_c)));
    const double a1 = (1 + g) * lab1[1], a2 = (1 + g) * lab2[1];
    const double c1 = std::hypot(a1, lab1[2]), c2 = std::hypot(a2, lab2[2]);
    const auto hue = [](double a, double b) {
        if (a == 0 && b == 0) return 0.0;
        const double h = std::atan2(b, a) / kDegree;
        return h < 0 ? h + 360 : h;
    };
    const double h1 = hue(a1, lab1[2]), h2 = hue(a2, lab2[2]);
    double dh = c1 * c2 == 0 ? 0 : h2 - h1;
    if (dh > 180) dh -= 360;
    if (dh < -180) dh += 360;
    const double d_l = lab2[0] - lab1[0], d_c = c2 - c1;
    const double d_h = 2 * std::sqrt(c1 * c2) * std::sin(dh / 2 * kDegree);
    const double l = (lab1[0] + lab2[0]) / 2, c = (c1 + c2) / 2;
    double h = h1 + h2;
    if (c1 * c2 != 0) {
        if (std::abs(h1 - h2) > 180) h += h < 360 ? 360 : -360;
        h /= 2;
    }
    const double t = 1 - 0.17 * std::cos((h - 30) * kDegree) + 0.24 * std::cos(2 * h * kDegree) +
                     0.32 * std::cos((3 * h + 6) * kDegree) - 0.20 * std::cos((4 * h - 63) * kDegree);
    const double turn = 30 * std::exp(-std::pow((h - 275) / 25, 2));
    const double r_t = -std::sin(2 * turn * kDegree) * 2 * std::sqrt(pow7(c));
    const double off = (l - 50) * (l - 50);
    const double l_part = d_l / (1 + 0.015 * off / std::sqrt(20 + off));
    const double c_part = d_c / (1 + 0.045 * c), h_part = d_h / (1 + 0.015 * c * t);
    return std::sqrt(l_part * l_part + c_part * c_part + h_part * h_part + r_t * c_part * h_part);
}

inline double Luminance(const Triple& light) {
    return 0.2126 * light[0] + 0.7152 * light[1] + 0.0722 * light[2];
}

inline double Contrast(const Triple& a, const Triple& b) {
    const auto [low, high] = std::minmax({Luminance(a), Luminance(b)});
    return (high + 0.05) / (low + 0.05);
}

inline double Contrast(Color a, Color b) { return Contrast(LinearOf(a), LinearOf(b)); }

}  // namespace brickfall
