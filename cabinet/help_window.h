// help_window.h - one painted page that says how to play and how the money moves. Main thread only.
#pragma once

#include "cabinet/scrolling.h"
#include "platform/window.h"

namespace brickfall {

WindowId OpenHelpWindow(WindowId owner);  // not shown yet

// How the panels scroll when the window is lower by `missing` pixels.
Scrolling ScrollHelp(int missing = 0);

void PaintHelp(Canvas& canvas, const Scrolling& scrolling);

}  // namespace brickfall
