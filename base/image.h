// image.h - pixels in memory.
#pragma once

#include <cstdint>
#include <vector>

namespace brickfall {

struct Image {
    int w = 0;
    int h = 0;
    std::vector<uint32_t> pixels;  // 0xAARRGGBB, not premultiplied, row by row from the top

    bool Empty() const { return pixels.empty(); }
    bool operator==(const Image&) const = default;
};

}  // namespace brickfall
