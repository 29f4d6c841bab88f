// window_placement.h - where the main window was and where it goes: rules over rectangles and monitors, and
// their keys in the settings document. Main thread only.
#pragma once

#include <optional>
#include <span>

#include "platform/geometry.h"

namespace brickfall {

inline constexpr int kDefaultWindowW = 1320;
inline constexpr int kDefaultWindowH = 1300;

struct WindowPlacement {
    Rect normal;  // the restored rectangle, frame included
    bool maximized = false;
    bool minimized = false;
};

struct RestoredPlacement {
    std::optional<Point> position;  // nothing: the system's place stands
    Size size;
};

// Stores the placement in the settings document and saves it. Nothing for a minimised window or a side below
// 80 pixels.
void SaveWindowPlacement(const WindowPlacement& placement);

RestoredPlacement RestoreWindowPlacement(std::span<const Monitor> monitors);

bool StartMaximized();

// Full screen is remembered by a key that is there only while it is on.
bool StartFullScreen();
void SaveFullScreen(bool on);

// Beside the main window, to its right if there is room, inside the work area.
Point PlaceBeside(const Rect& main, const Rect& work, Size size);

}  // namespace brickfall
