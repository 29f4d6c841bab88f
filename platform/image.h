// image.h - pictures in memory. Any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace brickfall {

struct Image {
    int w = 0;
    int h = 0;
    std::vector<uint32_t> pixels;  // 0xAARRGGBB, not premultiplied, row by row from the top

    bool Empty() const { return pixels.empty(); }
};

inline constexpr int kMaxImageSide = 4'096;  // a picture that claims a longer side is refused undecoded

// Decodes a PNG, JPEG, GIF (its first frame), BMP or WebP file; a JPEG of more than 1,024 pixels a side comes
// reduced to that. Nothing for bytes that are no such picture or one of too many pixels; whatever the bytes,
// no more than about 150 MB is allocated on the way.
std::optional<Image> DecodeImage(std::string_view file);

// Smooth scaling. Sides of at least 1.
Image ResizeImage(const Image& image, int w, int h);

}  // namespace brickfall
