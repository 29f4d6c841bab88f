#include "cabinet/well.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "cabinet/controls.h"
#include "cabinet/palettes.h"
#include "cabinet/theme.h"

namespace brickfall {
namespace {

constexpr Color kFieldColor = Rgb(0x040A08);
constexpr Color kStarColor = Rgb(0xA0DCBC);
constexpr Color kStarWarmColor = Rgb(0xDC8C40);
constexpr Color kPaddleColor = Rgb(0x38D48C);
constexpr Color kPaddleLightColor = Rgb(0xB4FFD2);
constexpr Color kBallColor = Rgb(0xFF8C28);
constexpr Color kBallEdgeColor = Rgb(0xFFC85A);
constexpr Color kBallLetterColor = Rgb(0x281004);
constexpr Color kBannerColor = Rgb(0x08100C);
constexpr Color kBannerEdgeColor = Rgb(0xDC2830);
constexpr Color kTextShadowColor = Rgb(0x140000);
constexpr Color kWhite = Rgb(0xFFFFFF);
constexpr Color kBlack = Rgb(0x000000);
constexpr uint64_t kBannerBlinkMs = 220;
// Beside the field: from its width on, and from the well's top.
constexpr int kHudLeft = 62;
constexpr int kHudRight = 266;
constexpr int kNotesTop = 194;
constexpr int kMostNotches = 3;
constexpr int kOutline = 2;  // of the texts over the field
constexpr std::string_view kBallLetter = "B";
constexpr int kLowestLetter = 13;  // of its line, in the device's pixels
constexpr std::string_view kGameOverText = "GAME OVER";

struct Layer {
    int grow;
    Color color;
};
constexpr Layer kFrameLayers[] = {{10, Rgb(0x020806)}, {9, Rgb(0x081C14)}, {8, Rgb(0x8CE4BC)},
                                  {7, Rgb(0x30A870)},  {5, Rgb(0x48C494)}, {3, Rgb(0x30A870)},
                                  {2, Rgb(0x104030)},  {1, Rgb(0x020806)}, {0, kFieldColor}};

// Where the run's field units lie in the well.
struct Field {
    int cw;
    int ch;
    Rect rect;

    int X(int32_t units) const { return kFieldLeft + units * cw / kCellUnits; }
    int Y(int32_t units) const { return kFieldTop + units * ch / kCellUnits; }
};

Field FieldOf(const WellState& run, CellSize layout) {
    const bool has_run = run.mode != kModeAttract;
    const int cw = has_run && run.game.cell_w >= 1 ? run.game.cell_w : layout.w;
    const int ch = has_run && run.game.cell_h >= 1 ? run.game.cell_h : layout.h;
    return {cw, ch, {kFieldLeft, kFieldTop, kBrickCols * cw, kFieldH / kCellUnits * ch}};
}

// What of `outer` lies outside `inner`, so that no pixel is filled twice.
void FillAround(Canvas& canvas, const Rect& outer, const Rect& inner, Color color) {
    const int top = std::clamp(inner.y, outer.y, outer.Bottom());
    const int bottom = std::clamp(inner.Bottom(), top, outer.Bottom());
    const int left = std::clamp(inner.x, outer.x, outer.Right());
    const int right = std::clamp(inner.Right(), left, outer.Right());
    canvas.Fill(FromEdges(outer.x, outer.y, outer.Right(), top), color);
    canvas.Fill(FromEdges(outer.x, bottom, outer.Right(), outer.Bottom()), color);
    canvas.Fill(FromEdges(outer.x, top, left, bottom), color);
    canvas.Fill(FromEdges(right, top, outer.Right(), bottom), color);
}

void DrawFrame(Canvas& canvas, const Rect& field) {
    const Size size = canvas.Extent();
    Rect outer = {0, 0, size.w, size.h};
    Color color = kBgColor;
    for (const Layer& layer : kFrameLayers) {
        const Rect inner = field.Grown(layer.grow);
        FillAround(canvas, outer, inner, color);
        outer = inner;
        color = layer.color;
    }
    canvas.Fill(field, kFieldColor);
    for (const int grow : {8, 1}) Bevel(canvas, field.Grown(grow), Rgb(0xC8F4DC), Rgb(0x081C14));
}

void DrawStars(Canvas& canvas, const Rect& field) {
    const auto width = static_cast<uint32_t>(std::max(field.w, 1));
    const auto height = static_cast<uint32_t>(std::max(field.h, 1));
    uint32_t s = 1'259'612'773;
    for (int star = 0; star < 48; ++star) {
        const Point at = {field.x + static_cast<int>(s % width),
                          field.y + static_cast<int>((s >> 10) % height)};
        canvas.Pixel(at, kStarColor);
        if ((s & 7) == 0) canvas.Pixel({at.x + 1, at.y}, kStarWarmColor);
        s += 3'283'182'455u;
    }
}

// Cut into the top edge, down to the floor's colour, so that they show on every colour.
void DrawNotches(Canvas& canvas, const Rect& brick, int count) {
    const int width = std::max(brick.w / 8, 2);
    int x = brick.x + (brick.w - (2 * count - 1) * width) / 2;
    for (int notch = 0; notch < count; ++notch, x += 2 * width) {
        canvas.Fill({x, brick.y, width, std::max(brick.h / 5, 3)}, kFieldColor);
    }
}

void DrawBricks(Canvas& canvas, const GameState& game, const Field& field, const EyeSettings& eyes) {
    for (int row = 0; row < kBrickRows; ++row) {
        for (int column = 0; column < kBrickCols; ++column) {
            const int hits = game.bricks[row][column];
            if (hits == 0) continue;
            const Rect brick = FromEdges(field.cw * column + 19, field.ch * (row + 1) + 15,
                                         field.cw * (column + 1) + 17, field.ch * (row + 2) + 13);
            const Color color = BrickColor(eyes.palette, row, hits);
            canvas.Fill(brick, color);
            Bevel(canvas, brick, BlendColor(color, kWhite, 70), BlendColor(color, kBlack, 80));
            if (eyes.strength_marks) DrawNotches(canvas, brick, std::min(hits, kMostNotches));
        }
    }
}

Rect PaddleRect(const GameState& game, const Field& field) {
    const int left = field.X(game.paddle_x);
    return {left, field.Y(kPaddleTop), field.X(game.paddle_x + game.paddle_w) - left,
            std::max(field.ch * 40 / kCellUnits, 6)};
}

Rect BallBox(const GameState& game, const Field& field) {
    const int radius = std::max(field.cw * 36 / kCellUnits, 5);
    return {field.X(game.ball_x) - radius, field.Y(game.ball_y) - radius, 2 * radius, 2 * radius};
}

void DrawPaddle(Canvas& canvas, const GameState& game, const Field& field) {
    const Rect paddle = PaddleRect(game, field);
    canvas.Fill(paddle, kPaddleColor);
    canvas.Fill({paddle.x, paddle.y, 1, paddle.h}, kPaddleLightColor);
    canvas.Fill({paddle.x, paddle.y, paddle.w, 1}, kPaddleLightColor);
}

void DrawBall(Canvas& canvas, const GameState& game, const Field& field) {
    const Rect box = BallBox(game, field);
    canvas.FillEllipse(box, kBallColor);
    canvas.FrameEllipse(box, kBallEdgeColor);
    // A letter as wide as this lies in the disc with its corners too.
    const Font letter = FittedFont(&Theme::font_mono, kBallLetter, (box.w / 2 - 1) * 5 / 4);
    if (MeasureText(letter, kBallLetter).h * canvas.Density() < kLowestLetter) return;  // no more than a blot
    canvas.Text(box.Grown(8), kBallLetter, letter, kBallLetterColor, AlignX::kCentre, AlignY::kCentre);
}

void DrawHud(Canvas& canvas, const WellState& run, const Rect& field, const FeeNote& fee) {
    const int left = field.w + kHudLeft;
    const auto line = [&](int y, int height, std::string_view text, const Font& font, Color color) {
        canvas.Text(FromEdges(left, y, field.w + kHudRight, y + height), text, font, color);
    };
    line(26, 36, "THIS RUN", theme.font_title, kPaddleColor);
    const bool attract = run.mode == kModeAttract;
    int y = 70;
    for (const std::string& text : {"Score   " + std::to_string(ShownScore(run)),
                                    "Level   " + std::to_string(attract ? 1 : run.game.level),
                                    "Bricks  " + std::to_string(attract ? 0 : run.game.bricks_left),
                                    "Lives   " + std::to_string(attract ? kStartLives : run.game.lives)}) {
        line(y, 28, text, theme.font_mono, kTextColor);
        y += 28;
    }
    y = kNotesTop;
    line(y, 20, "Enter  2000 house + 3000 pot", theme.font_small, kMutedColor);
    line(y + 20, 20, "Record  1 sat on the watch", theme.font_small, kMutedColor);
    const Color fee_color = fee.warns ? kWarnColor : kMutedColor;
    line(y + 40, 20, fee.text, theme.font_small, fee_color);
    line(y + 60, 20, fee.caveat, theme.font_small, fee_color);
}

void DrawOutlined(Canvas& canvas, const Rect& rect, std::string_view text, const Font& font, Color color) {
    const auto draw = [&](int dx, int dy, Color ink) {
        canvas.Text({rect.x + dx, rect.y + dy, rect.w, rect.h}, text, font, ink, AlignX::kCentre,
                    AlignY::kCentre);
    };
    for (int dy = -kOutline; dy <= kOutline; ++dy) {
        for (int dx = -kOutline; dx <= kOutline; ++dx) {
            if (dx != 0 || dy != 0) draw(dx, dy, kTextShadowColor);
        }
    }
    draw(0, 0, color);
}

Rect BannerBox(const Rect& field) {
    const int middle = field.y + field.h / 2;
    return FromEdges(field.x + 24, middle - 130, field.Right() - 24, middle + 150);
}

void DrawBanner(Canvas& canvas, const WellState& run, const Rect& field, uint64_t tick_ms, bool steady) {
    const Rect box = BannerBox(field);
    FillAround(canvas, box, box.Grown(-2), kBannerEdgeColor);
    canvas.Fill(box.Grown(-2), kBannerColor);
    const bool bright = steady || BlinkOn(tick_ms, kBannerBlinkMs);
    // In a field of small cells the lines are smaller, so that they stay whole, outlines included.
    const auto line = [&](int from, int to, std::string_view text, Font Theme::*font, Color color) {
        DrawOutlined(canvas, {box.x, box.y + from, box.w, to - from}, text, FittedFont(font, text, box.w - 8),
                     color);
    };
    line(12, 102, kGameOverText, &Theme::font_huge, bright ? Rgb(0xFF2424) : Rgb(0xB00808));
    line(106, 162, "Score  " + std::to_string(run.final_score), &Theme::font_large, kTextColor);
    line(170, 218, "Click  Record score", &Theme::font_large, bright ? Rgb(0xFFC86E) : Rgb(0xDC8C38));
}

std::string_view OverlayText(const WellState& run) {
    switch (run.mode) {
        case kModeAttract:
            return "INSERT 5000 SATS";
        case kModePlaying:
            return run.game.paused ? "PAUSED" : "";
        case kModeRecorded:
            return "SCORE ON-CHAIN";
        case kModeGameOver:
            break;  // a banner
    }
    return "";
}

void DrawOverlay(Canvas& canvas, const WellState& run, const Rect& field, uint64_t tick_ms, bool steady) {
    if (run.mode == kModeGameOver) return DrawBanner(canvas, run, field, tick_ms, steady);
    const std::string_view text = OverlayText(run);
    if (text.empty()) return;
    const Font font = FittedFont(&Theme::font_title, text, field.w - 2 * kOutline);
    DrawOutlined(canvas, field, text, font, kPaddleColor);
}

// Each where nothing else of the run stands, or not at all.
void DrawHints(Canvas& canvas, const WellState& run, const Field& field, const WellHints& hints) {
    constexpr int kLine = 20;
    const auto line = [&](Point middle, std::string_view text) {
        const int w = MeasureText(theme.font_small, text).w + 2;
        const int x =
            std::clamp(middle.x - w / 2, field.rect.x, std::max(field.rect.Right() - w, field.rect.x));
        canvas.Text({x, middle.y, w, kLine}, text, theme.font_small, kTextColor, AlignX::kCentre,
                    AlignY::kCentre);
    };
    const Rect paddle = PaddleRect(run.game, field);
    const bool waits = run.mode == kModePlaying && !run.game.paused && !run.game.ball_live;
    if (hints.serve && waits && paddle.Bottom() + kLine <= field.rect.Bottom()) {
        line({field.X(run.game.ball_x), paddle.Bottom()}, "Space serves");
    }
    const int under = BannerBox(field.rect).Bottom() + 6;
    if (hints.record && run.mode == kModeGameOver && under + kLine <= paddle.y) {
        line({field.rect.x + field.rect.w / 2, under}, "Return records the score");
    }
}

}  // namespace

WellState WellOf(const RunControl& run) { return {run.mode, run.game, run.final_score}; }

CellSize FittedCell(Size well) {
    const int cell = std::max(std::min((well.w - 296) / kBrickCols, (well.h - 52) / 18), kSmallestCell);
    return {cell, cell};
}

Rect WellField(const WellState& run, CellSize layout) { return FieldOf(run, layout).rect; }

void PaintGhost(Canvas& canvas, const GameState& ghost, CellSize cell, Color color) {
    WellState run;
    run.mode = kModePlaying;
    run.game = ghost;
    run.game.cell_w = cell.w;
    run.game.cell_h = cell.h;
    const Field field = FieldOf(run, cell);
    canvas.FrameRoundRect(PaddleRect(run.game, field), 0, color);
    canvas.FrameEllipse(BallBox(run.game, field), color);
}

int64_t ShownScore(const WellState& run) {
    const bool ended = run.mode == kModeGameOver || run.mode == kModeRecorded;
    return ended ? run.final_score : run.game.score;
}

Rect TxidRect(const WellState& run, CellSize layout) {
    const int width = FieldOf(run, layout).rect.w;
    return FromEdges(width + kHudLeft, kNotesTop + 80, width + kHudRight, kNotesTop + 100);
}

Rect BannerRect(const WellState& run, CellSize layout) { return BannerBox(FieldOf(run, layout).rect); }

void PaintWell(Canvas& canvas, const WellState& run, CellSize layout, uint64_t tick_ms, const FeeNote& fee,
               const EyeSettings& eyes, const WellHints& hints) {
    const Field field = FieldOf(run, layout);
    DrawFrame(canvas, field.rect);
    DrawStars(canvas, field.rect);
    if (run.mode != kModeAttract) {
        DrawBricks(canvas, run.game, field, eyes);
        DrawPaddle(canvas, run.game, field);
        DrawBall(canvas, run.game, field);
    }
    DrawHud(canvas, run, field.rect, fee);
    DrawOverlay(canvas, run, field.rect, tick_ms, eyes.steady);
    DrawHints(canvas, run, field, hints);
}

std::string SpokenWell(const WellState& run) {
    constexpr std::string_view kKeys = "Left and Right move the paddle, Space serves, P pauses";
    std::string spoken(OverlayText(run));
    if (run.mode == kModeGameOver) spoken = kGameOverText;
    if (run.mode != kModeAttract) {
        if (!spoken.empty()) spoken += ". ";
        spoken += "Score " + std::to_string(ShownScore(run)) + ", level " + std::to_string(run.game.level) +
                  ", lives " + std::to_string(run.game.lives);
    }
    return spoken.append(". ").append(kKeys);
}

}  // namespace brickfall
