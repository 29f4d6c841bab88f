#include "page/page_face.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "cabinet/theme.h"
#include "platform/image.h"

namespace brickfall {
namespace {

constexpr int kQuality = 80;

}  // namespace

std::optional<Image> ReadPageFace(std::string file, int max_side) {
    return DecodeImage(std::move(file), std::min(max_side, kPageFaceSide));
}

std::string PageFaceFile(const Image& face) {
    Image flat = face;
    for (uint32_t& pixel : flat.pixels) {
        const Color shown = BlendColor(kFaceDiscColor, Rgb(pixel & 0xFFFFFF), static_cast<int>(pixel >> 24));
        pixel = 0xFF000000u | uint32_t{shown.r} << 16 | uint32_t{shown.g} << 8 | shown.b;
    }
    return EncodeJpeg(flat, kQuality);
}

}  // namespace brickfall
