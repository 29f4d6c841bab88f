// image.h - pictures read from files, and scaled. Any thread.
#pragma once

#include <optional>
#include <string>

#include "base/image.h"

namespace brickfall {

inline constexpr int kMaxDecodedSide = 1'024;

// Decodes a PNG, JPEG, GIF (its first frame), BMP or WebP file from anywhere. Each side that is longer than
// `max_side`, of 1 to kMaxDecodedSide, is reduced to it: pictures are shown in squares. Nothing for bytes
// that are no such picture, for one that KeepStillPicture refuses, without memory, and once the platform is
// gone. Whatever the bytes, the call holds at most 150 MB, `file` included, and takes less than a second.
std::optional<Image> DecodeImage(std::string file, int max_side);

// As a PNG file; empty for a picture that is none.
std::string EncodePng(const Image& image);

// As a JPEG file, its alpha left out; empty for a picture that is none. `quality` of 0 to 100.
std::string EncodeJpeg(const Image& image, int quality);

// A PNG file on the disk, in one step. False when it cannot be written.
bool SavePng(const Image& image, const std::string& path);

// Smooth scaling. Sides of at least 1.
Image ResizeImage(const Image& image, int w, int h);

}  // namespace brickfall
