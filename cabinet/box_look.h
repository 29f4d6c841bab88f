// box_look.h - message boxes in the cabinet's own look. Main thread only.
#pragma once

#include "platform/window.h"

namespace brickfall {

void DressMessageBoxes();  // once the theme is made

void DrawBoxIcon(Canvas& canvas, BoxIcon icon);  // as large as the canvas

}  // namespace brickfall
