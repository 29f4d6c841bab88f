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

}  // namespace brickfall
