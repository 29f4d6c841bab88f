#include "cabinet/controls.h"

#include <cmath>
#include <numbers>
#include <string>
#include <utility>

namespace brickfall {
namespace {

constexpr Color kButtonTopColor = Rgb(0x146448);
constexpr Color kButtonBottomColor = Rgb(0x020806);
constexpr Color kButtonEdgeColor = Rgb(0x30A870);
constexpr Color kButtonTextColor = Rgb(0xE6FFF4);
constexpr Color kBlinkColor = Rgb(0xFFF4C8);
constexpr int kCorner = 14;
constexpr std::size_t kCaptionCap = 127;

struct Gradient {
    Color top;
    Color bottom;
};

Gradient GradientOf(const ButtonState& button, const ButtonLook& look) {
    if (look.blink) {
        return {BlendColor(kAccentColor, kBlinkColor, 80), BlendColor(kButtonBottomColor, kAccentColor, 80)};
    }
    Gradient gradient = {kButtonTopColor, kButtonBottomColor};
    if (button.hot) {
        gradient = {BlendColor(kButtonTopColor, kAccentColor, 90),
                    BlendColor(kButtonBottomColor, kAccentColor, 70)};
    }
    if (button.pressed) std::swap(gradient.top, gradient.bottom);
    if (button.disabled) {
        gradient.top = BlendColor(gradient.top, look.background, 120);
        gradient.bottom = BlendColor(gradient.bottom, look.background, 120);
    }
    return gradient;
}

// A pressed one gives way by a pixel.
Rect CaptionRect(Size size, const ButtonState& button) {
    const int shift = button.pressed ? 1 : 0;
    return {shift, shift, size.w, size.h};
}

Color CaptionColor(const ButtonState& button) { return button.disabled ? kMutedColor : kButtonTextColor; }

void DrawGear(Canvas& canvas, const Rect& rect, Color color) {
    const Point centre = {rect.x + rect.w / 2, rect.y + rect.h / 2};
    for (int spoke = 0; spoke < 8; ++spoke) {
        const double angle = spoke * std::numbers::pi / 4;
        const auto at = [&](double distance) {
            return Point{centre.x + static_cast<int>(std::lround(distance * std::cos(angle))),
                         centre.y + static_cast<int>(std::lround(distance * std::sin(angle)))};
        };
        canvas.Line(at(8), at(13), color, 2);
    }
    canvas.FrameEllipse({centre.x - 9, centre.y - 9, 19, 19}, color, 2);
    canvas.FillEllipse({centre.x - 4, centre.y - 4, 9, 9}, color);
}

// The first characters of UTF-8 text, none of them cut in half.
std::string FirstCharacters(std::string text, std::size_t count) {
    for (std::size_t at = 0; at < text.size(); ++at) {
        const bool begins = (static_cast<unsigned char>(text[at]) & 0xC0) != 0x80;
        if (begins && count-- == 0) {
            text.resize(at);
            break;
        }
    }
    return text;
}

}  // namespace

void MakeButton(WindowId parent, std::string_view caption, int id, const Rect& rect, std::string_view tip) {
    CreateButton(parent, id, rect, caption, theme.font_button);
    SetControlTip(parent, id, tip);
}

void PaintButtonFace(Canvas& canvas, std::string_view caption, const ButtonState& button,
                     const ButtonLook& look) {
    const Size size = canvas.Extent();
    const Rect all = {0, 0, size.w, size.h};
    canvas.Fill(all, look.background);
    const Gradient gradient = GradientOf(button, look);
    canvas.ClipRoundRect(all, kCorner, [&] {
        for (int y = 0; y < all.h; ++y) {
            const int t = all.h > 1 ? y * 255 / (all.h - 1) : 0;
            canvas.Fill({0, y, all.w, 1}, BlendColor(gradient.top, gradient.bottom, t));
        }
    });
    canvas.FrameRoundRect(all, kCorner, button.hot || button.pressed ? kAccentColor : kButtonEdgeColor);
    // Where the keyboard is: a second frame inside the first.
    if (button.focused) canvas.FrameRoundRect(all.Grown(-3), kCorner - 4, kButtonTextColor);
    canvas.Text(CaptionRect(size, button), caption, theme.font_button, CaptionColor(button), AlignX::kCentre,
                AlignY::kCentre);
}

void PaintButton(WindowId window, const Message& item, const ButtonLook& look) {
    if (item.id != kControlSettings) {
        const std::string caption = FirstCharacters(ControlText(window, item.id), kCaptionCap);
        return PaintButtonFace(*item.canvas, caption, item.button, look);
    }
    PaintButtonFace(*item.canvas, "", item.button, look);
    DrawGear(*item.canvas, CaptionRect(item.size, item.button), CaptionColor(item.button));
}

}  // namespace brickfall
