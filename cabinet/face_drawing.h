// face_drawing.h - the round faces of the board: a load's pictures, or a disc with the first letter of the
// name. Main thread only.
#pragma once

#include <string>
#include <string_view>

#include "board/faces.h"
#include "platform/canvas.h"

namespace brickfall {

// Takes the pictures of one load, and drops those of the load before.
void BuildFaceBitmaps(Faces faces);

void DrawFace(Canvas& canvas, int x, int y, std::string_view key);

}  // namespace brickfall
