#include "cabinet/palettes.h"

#include <algorithm>
#include <array>

#include "cabinet/theme.h"
#include "game/simulation.h"

namespace brickfall {
namespace {

constexpr int kStrengths = 3;
using BrickColors = std::array<std::array<Color, kStrengths>, kBrickRows>;

constexpr BrickColors StandardColors() {
    constexpr Color kRows[kBrickRows] = {Rgb(0xC46C28), Rgb(0xBC7C30), Rgb(0xA89438), Rgb(0x78A848),
                                         Rgb(0x48B064), Rgb(0x38B878), Rgb(0x30AC7C), Rgb(0x289C70)};
    constexpr int kLighter[kStrengths] = {0, 50, 90};  // towards white, of 255
    BrickColors colors;
    for (std::size_t row = 0; row < colors.size(); ++row) {
        for (std::size_t hit = 0; hit < kStrengths; ++hit) {
            colors[row][hit] = BlendColor(kRows[row], Rgb(0xFFFFFF), kLighter[hit]);
        }
    }
    return colors;
}
constexpr BrickColors kStandardColors = StandardColors();

// Each of the 24 is apart from every other: in the first for all eyes, and bright before the floor; in the
// others for eyes of their kind, along the one row of hues that these see.
constexpr BrickColors kContrastColors = {{
    {Rgb(0xFF6482), Rgb(0xC89696), Rgb(0xFAD2D2)},
    {Rgb(0xCD8C1E), Rgb(0xFF8241), Rgb(0xDCB491)},
    {Rgb(0xC8BE05), Rgb(0xD2FF5A), Rgb(0xFAF5B9)},
    {Rgb(0x14C89B), Rgb(0x0ADC4B), Rgb(0xAFFAB9)},
    {Rgb(0x00C3C8), Rgb(0xA5CDC8), Rgb(0x46FFF0)},
    {Rgb(0x00A5EB), Rgb(0x5AD2FA), Rgb(0xCDEBFF)},
    {Rgb(0xA5A0C8), Rgb(0x82A5FF), Rgb(0xE1DCFA)},
    {Rgb(0xD282B4), Rgb(0xF55AFA), Rgb(0xFFBEFF)},
}};

constexpr BrickColors kProtanColors = {{
    {Rgb(0x0F378C), Rgb(0x0F55C3), Rgb(0x2D78EB)},
    {Rgb(0x6E789B), Rgb(0x8CA0FA), Rgb(0xB4CDFA)},
    {Rgb(0x4B5A6E), Rgb(0x919BB9), Rgb(0xB9C3C8)},
    {Rgb(0x6E7373), Rgb(0x9B9696), Rgb(0xEBFAFF)},
    {Rgb(0x4B4B41), Rgb(0xB9B9A5), Rgb(0xFAEBD7)},
    {Rgb(0x696E50), Rgb(0x91916E), Rgb(0xC8BE7D)},
    {Rgb(0x554B05), Rgb(0x91730F), Rgb(0xFAFFAA)},
    {Rgb(0xB49614), Rgb(0xEBC305), Rgb(0xFFFF3C)},
}};

constexpr BrickColors kDeutanColors = {{
    {Rgb(0x1928D7), Rgb(0x5069C3), Rgb(0x468CFA)},
    {Rgb(0x1E4B7D), Rgb(0x78AAE1), Rgb(0xC3CDFA)},
    {Rgb(0x5F6E8C), Rgb(0x828CA5), Rgb(0xAFAFBE)},
    {Rgb(0x414650), Rgb(0x6E696E), Rgb(0xE1EBF5)},
    {Rgb(0x555046), Rgb(0x91968C), Rgb(0xC8BEB4)},
    {Rgb(0x736E55), Rgb(0xAAA57D), Rgb(0xFFFFEB)},
    {Rgb(0x414614), Rgb(0x646405), Rgb(0xF0F0A5)},
    {Rgb(0x968200), Rgb(0xC8AF1E), Rgb(0xFFFA28)},
}};

constexpr BrickColors kTritanColors = {{
    {Rgb(0x008C82), Rgb(0x4BC8AF), Rgb(0xA0FFFF)},
    {Rgb(0x055F64), Rgb(0x64736E), Rgb(0xAAC8CD)},
    {Rgb(0x3C4B3C), Rgb(0x879687), Rgb(0xE1EBE6)},
    {Rgb(0x504B50), Rgb(0x918796), Rgb(0xB9B9AF)},
    {Rgb(0x786473), Rgb(0xD7B4C8), Rgb(0xFFEBF0)},
    {Rgb(0x5A3C50), Rgb(0x8C5550), Rgb(0xA57882)},
    {Rgb(0x82192D), Rgb(0xAA0000), Rgb(0xFA9BAA)},
    {Rgb(0xC33C4B), Rgb(0xF00523), Rgb(0xEB696E)},
}};

const BrickColors& ColorsOf(Palette palette) {
    switch (palette) {
        case Palette::kStandard:
            return kStandardColors;
        case Palette::kContrast:
            return kContrastColors;
        case Palette::kProtan:
            return kProtanColors;
        case Palette::kDeutan:
            return kDeutanColors;
        case Palette::kTritan:
            return kTritanColors;
    }
    return kStandardColors;
}

}  // namespace

Color BrickColor(Palette palette, int row, int hits) {
    const auto strength = static_cast<std::size_t>(std::clamp(hits, 1, kStrengths) - 1);
    return ColorsOf(palette)[static_cast<std::size_t>(std::clamp(row, 0, kBrickRows - 1))][strength];
}

}  // namespace brickfall
