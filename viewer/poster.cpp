#include "viewer/poster.h"

#include <qrencode.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>

#include "audit/report.h"
#include "base/text.h"
#include "cabinet/face_drawing.h"
#include "cabinet/images.h"
#include "cabinet/theme.h"
#include "viewer/scene.h"

namespace brickfall {
namespace {

constexpr int kEdge = 36;
constexpr int kMoments = 5;
constexpr Size kMoment = {184, 247};
constexpr int kMomentsTop = 208;
constexpr Color kPaper = Rgb(0xF4FFF8);
constexpr Color kInk = Rgb(0x06100A);
constexpr int kQuietModules = 4;  // around a code, so that it is found

// Dark on light, in whole pixels a module, in the middle of the square.
void DrawCode(Canvas& canvas, const Rect& square, const std::string& text) {
    const std::unique_ptr<QRcode, void (*)(QRcode*)> code(
        QRcode_encodeString8bit(text.c_str(), 0, QR_ECLEVEL_M), QRcode_free);
    if (code == nullptr) return;
    canvas.Fill(square, kPaper);
    const int module = std::max(1, square.w / (code->width + 2 * kQuietModules));
    const int left = square.x + (square.w - module * code->width) / 2;
    const int top = square.y + (square.h - module * code->width) / 2;
    for (int y = 0; y < code->width; ++y) {
        for (int x = 0; x < code->width; ++x) {
            if ((code->data[y * code->width + x] & 1) == 0) continue;
            canvas.Fill({left + x * module, top + y * module, module, module}, kInk);
        }
    }
}

// From the first moments to the last: the middle of each part of the run, and its end.
std::array<uint64_t, kMoments> MomentsOf(const Course& course) {
    std::array<uint64_t, kMoments> moments{};
    for (int i = 0; i < kMoments; ++i)
        moments[static_cast<std::size_t>(i)] =
            course.LengthMs() * static_cast<uint64_t>(2 * i + 1) / (2 * kMoments - 1);
    moments.back() = course.LengthMs();
    return moments;
}

// The field alone, frame and all.
Image DrawMoment(Course& course, uint64_t tick_ms) {
    constexpr int kCell = 2 * kSmallestCell;
    Scene scene = SceneAt(course, tick_ms);
    scene.well.mode = kModePlaying;  // without the banner over the last wall
    scene.well.game.cell_w = scene.well.game.cell_h = kCell;
    return DrawToImage({2 * kFieldLeft + kBrickCols * kCell, 2 * kFieldTop + 18 * kCell},
                       [&](Canvas& canvas) {
                           PaintWell(canvas, scene.well, {kCell, kCell}, 0);
                       });
}

void PaintPoster(Canvas& canvas, OpenRun& open) {
    const RowAudit& audit = open.run.audit;
    Course& course = open.course;
    canvas.Fill({0, 0, kPosterSize.w, kPosterSize.h}, kBgColor);
    canvas.Fill({0, 0, kPosterSize.w, 8}, kAccentColor);
    DrawLogo(canvas, kEdge, 64);
    canvas.Text({kEdge + 80, 20, 400, 44}, "Brickfall", theme.font_heading, kTextColor, AlignX::kLeft,
                AlignY::kCentre);

    const int code_side = 168;
    const int right = audit.txid.empty() ? kPosterSize.w - kEdge : kPosterSize.w - kEdge - code_side - 24;
    const std::string name = RunName(open.run.audit);
    const std::string score = Grouped(audit.score);
    canvas.Text(FromEdges(kEdge, 84, right, 144), name,
                FittedFont(&Theme::font_large, name, (right - kEdge) / 2), kTextColor, AlignX::kLeft,
                AlignY::kCentre, /*ellipsis=*/true);
    canvas.Text(FromEdges(kEdge + (right - kEdge) / 2, 76, right, 150), score,
                FittedFont(&Theme::font_huge, score, (right - kEdge) / 2 - 10), kGoldColor, AlignX::kRight,
                AlignY::kCentre);
    const GameState end = course.At(course.LengthMs());
    std::string about = "Level " + std::to_string(end.level) + "   played " + PlayedText(course.LengthMs());
    if (audit.ts > 0) about += "   " + UtcText(audit.ts);
    canvas.Text(FromEdges(kEdge, 154, right, 184), about, theme.font_body, kMutedColor);
    const std::string verdict = VerdictLine(audit);
    const bool sound = audit.Status() == AuditStatus::kSound;
    canvas.Text(FromEdges(kEdge, 154, right, 184), verdict, theme.font_body,
                sound ? kAccentColor : kWarnColor, AlignX::kRight);

    const int step = (kPosterSize.w - 2 * kEdge - kMoment.w) / (kMoments - 1);
    int x = kEdge;
    for (const uint64_t moment : MomentsOf(course)) {
        canvas.Draw(DrawMoment(course, moment), {x, kMomentsTop + 24, kMoment.w, kMoment.h});
        canvas.Text({x, kMomentsTop + 24 + kMoment.h + 6, kMoment.w, 22}, PlayedText(moment),
                    theme.font_small, kMutedColor, AlignX::kCentre);
        x += step;
    }
    const int foot = kPosterSize.h - 70;
    if (course.End() != CourseEnd::kLost) {
        const bool fails = course.End() == CourseEnd::kFails;
        canvas.Text({kEdge, foot - 26, kPosterSize.w - 2 * kEdge, 24},
                    (fails ? "It fails here: " : "") + course.EndText(), theme.font_body, kWarnColor,
                    AlignX::kLeft, AlignY::kTop, /*ellipsis=*/true);
    }
    if (audit.txid.empty()) return;
    canvas.Text({kEdge, foot, kPosterSize.w - 2 * kEdge, 22},
                "Recorded on the chain, for everybody to replay:", theme.font_small, kMutedColor);
    canvas.Text({kEdge, foot + 22, kPosterSize.w - 2 * kEdge, 30}, audit.txid, theme.font_mono, kTextColor);
    DrawCode(canvas, {kPosterSize.w - kEdge - code_side, 26, code_side, code_side}, audit.txid);
}

}  // namespace

Image DrawPoster(OpenRun& run) {
    return DrawToImage(kPosterSize, [&run](Canvas& canvas) { PaintPoster(canvas, run); });
}

}  // namespace brickfall
