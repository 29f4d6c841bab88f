// face_drawing.h - the round faces of the board: pictures decoded from a load's bytes, or a disc with the
// first letter of the name. Main thread only.
#pragma once

#include <string>
#include <string_view>

#include "board/faces.h"
#include "platform/canvas.h"

namespace brickfall {

// Decodes the pictures of one load and drops those of the load before. Bytes that are no picture give none.
void BuildFaceBitmaps(const FaceBytes& face_bytes);
void DropFaceBitmaps();

void DrawFace(Canvas& canvas, int x, int y, std::string_view key);

}  // namespace brickfall
