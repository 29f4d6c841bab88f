// palettes.h - the bricks' colours by row and strength. Main thread only.
#pragma once

#include "cabinet/eye_settings.h"
#include "platform/canvas.h"

namespace brickfall {

// `row` counts from the top; three hits are as many as more.
Color BrickColor(Palette palette, int row, int hits);

}  // namespace brickfall
