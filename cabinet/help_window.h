// help_window.h - one painted page that says how to play and how the money moves. Main thread only.
#pragma once

#include "platform/window.h"

namespace brickfall {

WindowId OpenHelpWindow(WindowId owner);  // not shown yet

void PaintHelp(Canvas& canvas);

}  // namespace brickfall
