#include "cabinet/box_look.h"

#include <string_view>
#include <utility>

#include "cabinet/controls.h"
#include "cabinet/theme.h"

namespace brickfall {
namespace {

constexpr Size kBoxButton = {110, 34};
constexpr Size kBoxIcon = {44, 44};
constexpr Color kIconGround = Rgb(0x0E241C);  // of a key cap as well

void DrawDisc(Canvas& canvas, const Rect& all, std::string_view sign) {
    canvas.FillEllipse(all, kIconGround);
    canvas.FrameEllipse(all, kAccentColor, 2);
    canvas.Text(all, sign, theme.font_title, kAccentColor, AlignX::kCentre, AlignY::kCentre);
}

void DrawTriangle(Canvas& canvas, const Rect& all, std::string_view sign) {
    constexpr int kPen = 3;
    const Rect inner = all.Grown(-kPen);
    const Point top = {inner.x + inner.w / 2, inner.y};
    const Point left = {inner.x, inner.Bottom()};
    const Point right = {inner.Right(), inner.Bottom()};
    for (const auto& [from, to] : {std::pair(top, left), {top, right}, {left, right}}) {
        canvas.Line(from, to, kGoldColor, kPen);
    }
    const int quarter = inner.h / 4;  // the sign stands in the lower part, where there is room
    canvas.Text({all.x, all.y + quarter, all.w, all.h - quarter}, sign, theme.font_mono, kGoldColor,
                AlignX::kCentre, AlignY::kCentre);
}

}  // namespace

void DrawBoxIcon(Canvas& canvas, BoxIcon icon) {
    const Size size = canvas.Extent();
    const Rect all = {0, 0, size.w, size.h};
    switch (icon) {
        case BoxIcon::kNone:
            return;
        case BoxIcon::kInformation:
            return DrawDisc(canvas, all, "i");
        case BoxIcon::kQuestion:
            return DrawDisc(canvas, all, "?");
        case BoxIcon::kWarning:
            return DrawTriangle(canvas, all, "!");
    }
}

void DressMessageBoxes() {
    const auto paint_button = [](Canvas& canvas, std::string_view caption, const ButtonState& state) {
        PaintButtonFace(canvas, caption, state);
    };
    SetMessageBoxLook(
        {theme.font_body, kTextColor, kBgColor, kBoxButton, kBoxIcon, paint_button, DrawBoxIcon});
}

}  // namespace brickfall
