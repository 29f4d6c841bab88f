#include "platform/canvas.h"

namespace brickfall {

void Bevel(Canvas& canvas, const Rect& rect, Color top_left, Color bottom_right) {
    const int right = rect.Right() - 1;
    const int bottom = rect.Bottom() - 1;
    canvas.Line({rect.x, bottom}, {rect.x, rect.y}, top_left);
    canvas.Line({rect.x, rect.y}, {right, rect.y}, top_left);
    canvas.Line({right, rect.y}, {right, bottom}, bottom_right);
    canvas.Line({right, bottom}, {rect.x, bottom}, bottom_right);
}

void FrameRect(Canvas& canvas, const Rect& rect, Color color, int width) {
    canvas.Fill({rect.x, rect.y, rect.w, width}, color);
    canvas.Fill({rect.x, rect.Bottom() - width, rect.w, width}, color);
    canvas.Fill({rect.x, rect.y, width, rect.h}, color);
    canvas.Fill({rect.Right() - width, rect.y, width, rect.h}, color);
}

}  // namespace brickfall
