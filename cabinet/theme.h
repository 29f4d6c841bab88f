// theme.h - the cabinet's fixed look: colours, typefaces and the one colour mix. Main thread only.
#pragma once

#include <span>
#include <string_view>

#include "platform/canvas.h"

namespace brickfall {

inline constexpr Color kBgColor = Rgb(0x060C0A);
inline constexpr Color kPanelColor = Rgb(0x0C1612);
inline constexpr Color kHeaderColor = Rgb(0x08100E);
inline constexpr Color kTextColor = Rgb(0xDCF0E4);
inline constexpr Color kAccentColor = Rgb(0x38D48C);
inline constexpr Color kMutedColor = Rgb(0x608C74);
inline constexpr Color kBorderColor = Rgb(0x30A870);
inline constexpr Color kWarnColor = Rgb(0xDC4030);
inline constexpr Color kGoldColor = Rgb(0xE8C448);

// Of a face, and of the disc with an initial in place of one.
inline constexpr Color kFaceDiscColor = Rgb(0x241A0A);
inline constexpr Color kFaceInitialColor = Rgb(0xF6E8C8);
inline constexpr Color kFaceRingColor = Rgb(0xA86C18);

// The header band's lower edge in the main window, and in the tool windows that have one.
inline constexpr int kHeaderBottom = 86;
inline constexpr int kToolHeaderBottom = 72;

struct Theme {
    Font font_button;
    Font font_small;
    Font font_title;
    Font font_mono;
    Font font_body;
    Font font_heading;
    Font font_huge;
    Font font_large;
};

// Made with the main window; kept until it is gone.
extern Theme& theme;

void MakeTheme();
void DropTheme();

// A font of the theme, or its face in the largest lower height in which the text is no wider than `width`.
Font FittedFont(Font Theme::*font, std::string_view text, int width);

// `t` of 0 gives `a`, of 255 gives `b`; each channel is truncated.
constexpr Color BlendColor(Color a, Color b, int t) {
    const auto mix = [t](int from, int to) {
        const int mixed = (from * (255 - t) + to * t) / 255;
        return static_cast<uint8_t>(mixed < 0 ? 0 : mixed > 255 ? 255 : mixed);
    };
    return {mix(a.r, b.r), mix(a.g, b.g), mix(a.b, b.b)};
}

// A raised panel with a title and a rule under it; the y where its content begins.
int DrawPanel(Canvas& canvas, const Rect& rect, std::string_view title);

// Lines of body text inside a panel, from `y` on.
void DrawLines(Canvas& canvas, const Rect& panel, int y, std::span<const std::string_view> lines);

// The header band of a tool window: logo, title and maker.
void DrawToolHeader(Canvas& canvas);

}  // namespace brickfall
