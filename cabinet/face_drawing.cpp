#include "cabinet/face_drawing.h"

#include <utility>

#include "cabinet/theme.h"

namespace brickfall {
namespace {

// Of a line, so that its capitals are about 17 pixels high as letters go: the em is 38 / 2.2 pixels.
constexpr int kInitialHeight = 23;

Faces& face_bitmaps = *new Faces;

Font& InitialFont() {
    static Font& font = *new Font(MakeFont("Segoe UI", kInitialHeight, 700, FontQuality::kAntialiased));
    return font;
}

}  // namespace

void BuildFaceBitmaps(Faces faces) { face_bitmaps = std::move(faces); }

void DrawFace(Canvas& canvas, int x, int y, std::string_view key) {
    const Rect square = {x, y, kFaceSize, kFaceSize};
    const auto face = face_bitmaps.find(key);
    if (face != face_bitmaps.end()) {
        canvas.ClipEllipse(square, [&] { canvas.Draw(face->second, square); });
    } else {
        canvas.FillEllipse(square, kFaceDiscColor);
        canvas.Text(square, key.empty() ? "?" : UpperInitial(key), InitialFont(), kFaceInitialColor,
                    AlignX::kCentre, AlignY::kCentre);
    }
    canvas.FrameEllipse(square, kFaceRingColor, 1.4);
}

}  // namespace brickfall
