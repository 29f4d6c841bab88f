#include "cabinet/images.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <string>
#include <utility>

#include "assets/assets.h"

namespace brickfall {
namespace {

constexpr int kLogoSide = 128;
constexpr uint32_t kGroundBelow = 38;  // a pixel whose channels are all below this belongs to the ground

Image& logo = *new Image;

bool IsGround(uint32_t pixel) {
    return (pixel >> 16 & 0xFF) < kGroundBelow && (pixel >> 8 & 0xFF) < kGroundBelow &&
           (pixel & 0xFF) < kGroundBelow;
}

}  // namespace

std::string_view LogoFile() { return LogoFile1024(); }

void LoadLogo(std::string_view file) {
    logo = DecodeImage(std::string(file), kMaxDecodedSide).value_or(Image());
    std::replace_if(logo.pixels.begin(), logo.pixels.end(), IsGround, 0u);
    if (logo.w > kLogoSide || logo.h > kLogoSide) logo = ResizeImage(logo, kLogoSide, kLogoSide);
}

void DropLogo() { logo = Image(); }

Image MakeIcon(int size) { return logo.Empty() ? Image() : ResizeImage(logo, size, size); }

Image StoredIcon(int size) {
    for (const auto& [side, file] : {std::pair(16, IconFile16()), std::pair(32, IconFile32()),
                                     std::pair(48, IconFile48()), std::pair(256, IconFile256())}) {
        if (side < size && side != 256) continue;
        const std::optional<Image> icon = DecodeImage(std::string(file), kMaxDecodedSide);
        return icon ? ResizeImage(*icon, size, size) : Image();
    }
    return {};
}

void DrawLogo(Canvas& canvas, int x, int size) {
    if (!logo.Empty()) canvas.Draw(logo, {x, 8, size, size});
}

}  // namespace brickfall
