// wayland.h - what is known of a Wayland desktop, which tells a window neither where it stands nor what else
// is on the screen. Main thread only.
#pragma once

#include <QMargins>
#include <QRect>

namespace brickfall {

bool OnWayland();

// A frame that the compositor draws itself, since it does not tell: a title bar's height and a border, with
// what the larger desktops use.
inline constexpr QMargins kUntoldFrame = {4, 36, 4, 4};

// What of a screen is left beside panels that nobody tells of.
QRect WithoutUntoldPanels(const QRect& screen);

}  // namespace brickfall
