// picture.h - pictures of the platform's form and of the toolkit's. Any thread.
#pragma once

#include <QImage>

#include "base/image.h"

namespace brickfall {

// Has as many pixels as its sides say.
bool IsWhole(const Image& image);

// On the same pixels: it must not outlive `image`.
QImage OnPixelsOf(const Image& image);

QImage SmoothlyScaled(const Image& image, int w, int h);  // premultiplied

Image FromQImage(QImage picture);

// Sets the decoders' limit, and keeps what is only noise off the terminal. Does it once.
void PrepareDecoders();

// Around the toolkit's life: closing waits for the picture that is being read, if any, and from then on
// DecodeImage gives nothing.
void OpenDecoders();
void CloseDecoders();

}  // namespace brickfall
