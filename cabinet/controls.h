// controls.h - the cabinet's buttons: one painter for all of them. Main thread only.
#pragma once

#include <cstdint>
#include <string_view>

#include "cabinet/theme.h"
#include "platform/window.h"

namespace brickfall {

inline constexpr int kControlSettings = 1015;  // the gear: drawn, without a caption

// What the painter cannot see in the button itself.
struct ButtonLook {
    Color background = kBgColor;  // of the corners
    bool blink = false;           // Record score calls the player
};

// `tip`: what a press does, and what it costs.
void MakeButton(WindowId parent, std::string_view caption, int id, const Rect& rect,
                std::string_view tip = {});

inline constexpr char kCloseTip[] = "Closes this window.";

// Draws the whole of `canvas` as a button with this caption.
void PaintButtonFace(Canvas& canvas, std::string_view caption, const ButtonState& button,
                     const ButtonLook& look = {});

// Answers kPaintButton. At most 127 characters of the caption are shown.
void PaintButton(WindowId window, const Message& item, const ButtonLook& look = {});

// Whether something that blinks with this half period shows its bright side at this tick.
constexpr bool BlinkOn(uint64_t tick_ms, uint64_t half_period_ms) {
    return tick_ms / half_period_ms % 2 == 1;
}

}  // namespace brickfall
