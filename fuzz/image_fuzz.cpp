// Any bytes as a picture: nothing, or one whose pixels are as many as its sides say, within the limit.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/support.h"
#include "platform/image.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    using namespace brickfall;
    const auto image = DecodeImage({reinterpret_cast<const char*>(data), size});
    if (!image) return 0;
    Require(image->w >= 1 && image->w <= kMaxImageSide && image->h >= 1 && image->h <= kMaxImageSide);
    Require(image->pixels.size() == static_cast<std::size_t>(image->w) * static_cast<std::size_t>(image->h));
    const Image small = ResizeImage(*image, 16, 16);
    Require(small.w == 16 && small.h == 16 && small.pixels.size() == 256);
    return 0;
}
