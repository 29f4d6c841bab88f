// images.h - the one piece of art of the program, and the icons made from it. Main thread only.
#pragma once

#include <string_view>

#include "platform/canvas.h"
#include "platform/image.h"

namespace brickfall {

// The art as it lies in the program: a PNG of 1024 by 1024 pixels with alpha.
std::string_view LogoFile();

// Decodes the art, takes its near-black ground away and keeps it at 128 pixels a side at most. A file that is
// no picture gives no logo, and the program runs without it.
void LoadLogo(std::string_view file);
void DropLogo();

Image MakeIcon(int size);  // from the logo; empty without one

// Where there is no logo: from the smallest stored icon that is no smaller than asked for, or the largest.
Image StoredIcon(int size);

// At `x` and 8 pixels from the top; nothing without a logo.
void DrawLogo(Canvas& canvas, int x, int size);

}  // namespace brickfall
