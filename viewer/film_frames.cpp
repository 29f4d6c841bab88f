#include "viewer/film_frames.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "audit/report.h"
#include "base/text.h"
#include "cabinet/theme.h"
#include "viewer/scene.h"

namespace brickfall {
namespace {

// A picture is laid out for this size at least, and drawn at a whole multiple of it.
constexpr Size kSmallestLayout = {960, 540};
constexpr Size kSmallestWell = {18 + 13 * kSmallestCell + 266, 52 + 18 * kSmallestCell};
constexpr int kPanelWidth = 200;  // beside the well, where there is room

int ScaleOf(Size size) {
    return std::max(1, std::min(size.w / kSmallestLayout.w, size.h / kSmallestLayout.h));
}

// Beside the well: whose run it is.
void PaintAbout(Canvas& canvas, const WatchedRun& run, int left) {
    const int right = canvas.Extent().w - 16;
    int y = 26;
    const auto line = [&](std::string_view text, const Font& font, Color color, int height) {
        if (!text.empty()) {
            canvas.Text(FromEdges(left, y, right, y + height), text, font, color, AlignX::kLeft, AlignY::kTop,
                        /*ellipsis=*/true);
        }
        y += height;
    };
    const RowAudit& audit = run.audit;
    line(RunName(run.audit), theme.font_title, kTextColor, 44);
    line("Recorded score  " + Grouped(audit.score), theme.font_body, kTextColor, 26);
    if (audit.ts > 0) line(UtcText(audit.ts), theme.font_body, kMutedColor, 26);
    const Color color = audit.Status() == AuditStatus::kSound ? kAccentColor : kWarnColor;
    line(VerdictLine(audit), theme.font_body,
         audit.Status() == AuditStatus::kCouldNotLook ? kGoldColor : color, 36);
    const std::string_view txid = audit.txid;
    for (std::size_t i = 0; i < txid.size(); i += 22)
        line(txid.substr(i, 22), theme.font_small, kMutedColor, 18);
}

// BT.709, 16 to 235 and 16 to 240, in 16 bits behind the point.
constexpr int Luma(int r, int g, int b) {
    return (11'966 * r + 40'254 * g + 4'064 * b + (16 << 16) + 32'768) >> 16;
}
constexpr int BlueDifference(int r, int g, int b) {
    return (-6'596 * r - 22'189 * g + 28'784 * b + (128 << 16) + 32'768) >> 16;
}
constexpr int RedDifference(int r, int g, int b) {
    return (28'784 * r - 26'145 * g - 2'639 * b + (128 << 16) + 32'768) >> 16;
}
static_assert(Luma(0, 0, 0) == 16 && Luma(255, 255, 255) == 235 && BlueDifference(255, 255, 255) == 128 &&
              RedDifference(255, 255, 255) == 128 && BlueDifference(0, 0, 255) == 240 &&
              RedDifference(255, 0, 0) == 240);

constexpr int Red(uint32_t pixel) { return static_cast<int>(pixel >> 16 & 0xFF); }
constexpr int Green(uint32_t pixel) { return static_cast<int>(pixel >> 8 & 0xFF); }
constexpr int Blue(uint32_t pixel) { return static_cast<int>(pixel & 0xFF); }

// Two rows of pixels; in the last of an odd height both are the same.
void ConvertRows(const Image& image, int y, std::vector<uint8_t>& yuv) {
    const auto w = static_cast<std::size_t>(image.w);
    const auto h = static_cast<std::size_t>(image.h);
    const std::size_t half_w = (w + 1) / 2;
    const std::size_t half_h = (h + 1) / 2;
    const auto row = static_cast<std::size_t>(y);
    const std::size_t below = std::min(row + 1, h - 1);
    const uint32_t* const a = image.pixels.data() + row * w;
    const uint32_t* const b = image.pixels.data() + below * w;
    for (const auto& [pixels, at] : {std::pair(a, row), std::pair(b, below)}) {
        uint8_t* const luma = yuv.data() + at * w;
        for (std::size_t x = 0; x < w; ++x)
            luma[x] = static_cast<uint8_t>(Luma(Red(pixels[x]), Green(pixels[x]), Blue(pixels[x])));
    }
    uint8_t* const blue = yuv.data() + w * h + row / 2 * half_w;
    uint8_t* const red = blue + half_w * half_h;
    for (std::size_t x = 0; x < half_w; ++x) {
        const std::size_t left = 2 * x;
        const std::size_t right = std::min(left + 1, w - 1);
        const auto mean = [&](int (*channel)(uint32_t)) {
            return (channel(a[left]) + channel(a[right]) + channel(b[left]) + channel(b[right]) + 2) / 4;
        };
        const int r = mean(Red), g = mean(Green), bl = mean(Blue);
        blue[x] = static_cast<uint8_t>(BlueDifference(r, g, bl));
        red[x] = static_cast<uint8_t>(RedDifference(r, g, bl));
    }
}

}  // namespace

FilmFrames::FilmFrames(OpenRun& run, OpenRun* ghost, const FilmCut& cut)
    : run_(run), ghost_(ghost), cut_(cut) {
    const uint64_t run_ms = run_.course.LengthMs();
    cut_.from_ms = std::min(cut_.from_ms, run_ms);
    length_ms_ = run_ms - cut_.from_ms + kFilmTailMs;
    if (cut_.for_ms > 0) length_ms_ = std::min(length_ms_, cut_.for_ms);
    count_ = static_cast<std::size_t>((length_ms_ * kFramesASecond + 999) / 1'000);
    const auto pixels = static_cast<std::size_t>(cut.size.w) * static_cast<std::size_t>(cut.size.h);
    picture_ = {cut.size.w, cut.size.h, std::vector<uint32_t>(pixels, 0xFF000000u)};
}

uint64_t FilmFrames::LostAtMs() const {
    return run_.course.End() == CourseEnd::kLost ? run_.course.LengthMs() - cut_.from_ms : length_ms_ + 1;
}

void FilmFrames::PaintWhole(Canvas& canvas, uint64_t run_ms, uint64_t film_ms) {
    const Size size = canvas.Extent();
    Scene scene = SceneAt(run_.course, run_ms, cut_.inputs);
    if (ghost_ != nullptr) scene.ghost = ghost_->course.At(run_ms);
    PaintScene(canvas, scene, film_ms);
    const int left = FittedCell(size).w * kBrickCols + 62 + 204 + 24;  // behind the well's own column
    if (size.w - left >= kPanelWidth) PaintAbout(canvas, run_.run, left);
}

const Image& FilmFrames::Paint(std::size_t frame) {
    const uint64_t film_ms = static_cast<uint64_t>(frame) * 1'000 / kFramesASecond;
    const uint64_t run_ms = std::min(cut_.from_ms + film_ms, run_.course.LengthMs());
    const Size size = cut_.size;
    if (size.w < kSmallestWell.w || size.h < kSmallestWell.h) {
        // The smallest well as a whole, scaled down, in the middle.
        const Image whole = DrawToImage(
            kSmallestWell, [&](Canvas& canvas) { PaintWhole(canvas, run_ms, film_ms); }, 2);
        const int w = std::min(size.w, kSmallestWell.w * size.h / kSmallestWell.h);
        const int h = std::min(size.h, kSmallestWell.h * size.w / kSmallestWell.w);
        PaintOnImage(picture_, [&](Canvas& canvas) {
            canvas.Fill({0, 0, size.w, size.h}, kBgColor);
            canvas.Draw(whole, {(size.w - w) / 2, (size.h - h) / 2, w, h});
        });
        return picture_;
    }
    const int scale = ScaleOf(size);
    if (size.w % scale != 0 || size.h % scale != 0)
        PaintOnImage(picture_, [&](Canvas& canvas) { canvas.Fill({0, 0, size.w, size.h}, kBgColor); });
    PaintOnImage(
        picture_, [&](Canvas& canvas) { PaintWhole(canvas, run_ms, film_ms); }, scale);
    return picture_;
}

const std::vector<uint8_t>& FilmFrames::PaintYuv(std::size_t frame) {
    Paint(frame);
    const auto w = static_cast<std::size_t>(picture_.w);
    const auto h = static_cast<std::size_t>(picture_.h);
    const bool first = former_.pixels.empty();
    if (first) {
        former_ = picture_;
        yuv_.resize(w * h + 2 * ((w + 1) / 2) * ((h + 1) / 2));
    }
    for (int y = 0; y < picture_.h; y += 2) {
        const std::size_t from = static_cast<std::size_t>(y) * w;
        const std::size_t bytes = std::min<std::size_t>(2 * w, w * h - from) * sizeof(uint32_t);
        if (!first && std::memcmp(picture_.pixels.data() + from, former_.pixels.data() + from, bytes) == 0)
            continue;
        ConvertRows(picture_, y, yuv_);
    }
    std::swap(picture_.pixels, former_.pixels);
    return yuv_;
}

}  // namespace brickfall
