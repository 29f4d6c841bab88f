#include "cabinet/face_drawing.h"

#include <functional>
#include <map>
#include <optional>

#include "cabinet/theme.h"

namespace brickfall {
namespace {

// Pictures are kept at this side at most: enough for a screen of four times the density.
constexpr int kKeptSide = 4 * kFaceSize;
// Of a line, so that its capitals are about 17 pixels high as letters go: the em is 38 / 2.2 pixels.
constexpr int kInitialHeight = 23;

std::map<std::string, Image, std::less<>>& face_bitmaps = *new std::map<std::string, Image, std::less<>>;

Font& InitialFont() {
    static Font& font = *new Font(MakeFont("Segoe UI", kInitialHeight, 700, FontQuality::kAntialiased));
    return font;
}

}  // namespace

void BuildFaceBitmaps(const FaceBytes& face_bytes) {
    face_bitmaps.clear();
    for (const auto& [key, bytes] : face_bytes) {
        std::optional<Image> image = DecodeImage(bytes, kKeptSide);
        if (!image) continue;
        face_bitmaps.emplace(key, *std::move(image));
    }
}

void DropFaceBitmaps() { face_bitmaps.clear(); }

void DrawFace(Canvas& canvas, int x, int y, std::string_view key) {
    const Rect square = {x, y, kFaceSize, kFaceSize};
    const auto bitmap = face_bitmaps.find(key);
    if (bitmap != face_bitmaps.end()) {
        canvas.ClipEllipse(square, [&] { canvas.Draw(bitmap->second, square); });
    } else {
        canvas.FillEllipse(square, Rgb(0x241A0A));
        canvas.Text(square, key.empty() ? "?" : UpperInitial(key), InitialFont(), Rgb(0xF6E8C8),
                    AlignX::kCentre, AlignY::kCentre);
    }
    canvas.FrameEllipse(square, Rgb(0xA86C18), 1.4);
}

}  // namespace brickfall
