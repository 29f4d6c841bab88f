// picture.h - pictures of the platform's form and of the toolkit's. Any thread.
#pragma once

#include <QImage>

#include "platform/image.h"

namespace brickfall {

// Has as many pixels as its sides say.
bool IsWhole(const Image& image);

// On the same pixels: it must not outlive `image`.
QImage OnPixelsOf(const Image& image);

QImage SmoothlyScaled(const Image& image, int w, int h);  // premultiplied

Image FromQImage(QImage picture);

// Sets the decoders' limit, and keeps what is only noise off the terminal. Does it once.
void PrepareDecoders();

}  // namespace brickfall
