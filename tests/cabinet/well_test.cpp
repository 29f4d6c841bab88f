// The well's picture, probed at chosen pixels. Positions are worked out from the layout's rules by hand.
#include "cabinet/well.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "cabinet/palettes.h"
#include "cabinet/theme.h"
#include "tests/cabinet/cabinet_fixture.h"

namespace brickfall {
namespace {

constexpr int kFieldW40 = 13 * 40, kFieldH40 = 18 * 40;
constexpr Size kWellSize = {kFieldW40 + 290, kFieldH40 + 66};
constexpr Color kFloor = Rgb(0x040A08), kPaddle = Rgb(0x38D48C), kTopBrick = Rgb(0xC46C28);

struct Look {
    explicit Look(const RunControl& run = {}, uint64_t tick_ms = 0, Size size = kWellSize,
                  const FeeNote& fee = {}, const EyeSettings& eyes = {}, const WellHints& hints = {}) {
        MakeTheme();
        image = DrawToImage(size, [&](Canvas& canvas) {
            PaintWell(canvas, WellOf(run), {40, 40}, tick_ms, fee, eyes, hints);
        });
    }
    Color At(int x, int y) const { return PixelOf(image, x, y); }
    bool Has(const Rect& rect, Color color) const { return HasColor(image, rect, color); }
    Image image;
};

RunControl RunIn(RunMode mode) {
    RunControl run;
    run.mode = mode;
    run.game = NewGame(40, 40);
    run.final_score = 4321;
    return run;
}

TEST(Well, FramesTheFieldInNineLayersWithTwoBevels) {
    const Look look;
    const int y = 14 + kFieldH40 / 2 + 100, far = 18 + kFieldW40;  // on the far side the bevels are dark
    const std::pair<int, uint32_t> across[] = {{18 - 11, 0x060C0A}, {18 - 10, 0x020806}, {18 - 9, 0x081C14},
                                               {18 - 8, 0xC8F4DC},  {18 - 7, 0x30A870},  {18 - 6, 0x30A870},
                                               {18 - 5, 0x48C494},  {18 - 4, 0x48C494},  {18 - 3, 0x30A870},
                                               {18 - 2, 0x104030},  {18 - 1, 0xC8F4DC},  {18, 0x040A08},
                                               {far, 0x081C14},     {far + 2, 0x30A870}, {far + 7, 0x081C14}};
    for (const auto& [x, hex] : across) EXPECT_EQ(look.At(x, y), Rgb(hex)) << x;
    EXPECT_EQ(look.At(kWellSize.w - 1, kWellSize.h - 1), kBgColor);
}

TEST(Well, DrawsTheSameStarsInEveryFrame) {
    const Look look;
    // The first star by the generator's definition: 1259612773 mod 520 and (1259612773 / 1024) mod 720.
    EXPECT_EQ(look.At(18 + 1259612773 % 520, 14 + 1259612773 / 1024 % 720), Rgb(0xA0DCBC));
    const int stars =
        kFieldW40 * kFieldH40 - Inked(look.image, {18, 14, kFieldW40, kFieldH40}, Rgb(0xA0DCBC));
    EXPECT_GT(stars, 40);  // 48, less those under the text in the middle
    EXPECT_LE(stars, 48);
    EXPECT_EQ(Look({}, 12'345).image.pixels, look.image.pixels);
}

TEST(Well, ShowsBricksByRowAndStrength) {
    RunControl run = RunIn(kModePlaying);
    constexpr uint8_t kStrengths[] = {1, 2, 3, 0};
    std::copy_n(kStrengths, 4, run.game.bricks[0]);
    run.game.bricks[7][12] = 1;
    const Look look(run);
    const auto lighter = [](int of_255) { return BlendColor(kTopBrick, Rgb(0xFFFFFF), of_255); };
    const Color dark = BlendColor(kTopBrick, Rgb(0x000000), 80);
    // A brick of row r and column c fills 38 pixels each way from {40 c + 19, 40 (r + 1) + 15} on.
    const std::pair<Point, Color> pixels[] = {{{38, 74}, kTopBrick},    {{78, 74}, lighter(50)},
                                              {{118, 74}, lighter(90)}, {{518, 354}, Rgb(0x289C70)},
                                              {{19, 65}, lighter(70)},  {{29, 55}, lighter(70)},
                                              {{56, 65}, dark},         {{29, 92}, dark},
                                              {{57, 65}, kFloor}};  // a pixel's gap
    for (const auto& [at, color] : pixels) EXPECT_EQ(look.At(at.x, at.y), color) << at.x << "," << at.y;
    EXPECT_NE(look.At(158, 74), kTopBrick) << "gone";
}

TEST(Well, ShowsPaddleAndBallWhereTheRunHasThem) {
    RunControl run = RunIn(kModePlaying);
    run.game.paddle_x = 512;
    run.game.ball_x = 1000;
    run.game.ball_y = 3000;
    const Look look(run);
    const int left = 18 + 512 * 40 / 256, top = 14 + 4312 * 40 / 256;
    EXPECT_EQ(look.At(left + 5, top + 3), kPaddle);
    EXPECT_EQ(look.At(left, top + 3), Rgb(0xB4FFD2));
    EXPECT_EQ(look.At(left + 5, top), Rgb(0xB4FFD2));
    EXPECT_EQ(look.At(left + 768 * 40 / 256 - 1, top + 5), kPaddle);
    EXPECT_EQ(look.At(left + 5, top + 6), kFloor);  // 40 * 40 / 256 is 6 pixels
    const int x = 18 + 1000 * 40 / 256, y = 14 + 3000 * 40 / 256;
    EXPECT_TRUE(look.Has({x - 5, y - 5, 10, 10}, Rgb(0xFF8C28)));
    EXPECT_FALSE(look.Has({x - 14, y - 14, 8, 28}, Rgb(0xFF8C28)));

    run.game.cell_w = run.game.cell_h = 18;  // the smallest
    const Look small(run);
    EXPECT_EQ(small.At(18 + 512 * 18 / 256 + 2, 14 + 4312 * 18 / 256 + 5), kPaddle);  // 6 high at least
    EXPECT_EQ(small.At(18 + 13 * 18 + 3, 100), Rgb(0x48C494));  // the run's own field, not the layout's
}

TEST(Well, PutsALetterOnTheBallThatIsLargeEnoughForIt) {
    MakeTheme();
    for (const int cell : {18, 40, 55, 102}) {
        for (const int density : {1, 2}) {
            SCOPED_TRACE(cell * 10 + density);
            WellState state = WellOf(RunIn(kModePlaying));
            state.game = NewGame(cell, cell);
            state.game.ball_x = state.game.ball_y = 2'560;
            const Size size = {cell * 13 + 290, cell * 18 + 66};
            const Image image = DrawToImage(
                size,
                [&](Canvas& canvas) {
                    PaintWell(canvas, state, {cell, cell}, 0);
                },
                density);
            const int radius = std::max(cell * 36 / 256, 5) * density;
            const Point centre = {(18 + 10 * cell) * density, (14 + 10 * cell) * density};
            int letter = 0;
            for (int y = -2 * radius; y < 2 * radius; ++y) {
                for (int x = -2 * radius; x < 2 * radius; ++x) {
                    const Color color = PixelOf(image, centre.x + x, centre.y + y);
                    const bool is_dark = color.r > 0x18 && color.r < 0x60 && color.g * 3 < color.r * 2;
                    letter += is_dark ? 1 : 0;
                    EXPECT_TRUE(!is_dark || std::hypot(x + 0.5, y + 0.5) < radius + 1) << x << "," << y;
                }
            }
            EXPECT_EQ(letter > 4, radius > 5) << "one of ten pixels has no room for it";
        }
    }
}

TEST(Well, TellsTheModeOverTheField) {
    RunControl paused = RunIn(kModePlaying);
    paused.game.paused = true;
    paused.game.ball_y = 4268;
    // Where a text is expected, and nothing else of its colour.
    constexpr Rect kCentreBand = {18 + 60, 14 + kFieldH40 / 2 - 20, kFieldW40 - 120, 40};
    for (const RunControl& run : {RunControl{}, paused, RunIn(kModeRecorded)}) {
        EXPECT_TRUE(Look(run).Has(kCentreBand, kPaddle)) << run.mode;
    }
    EXPECT_FALSE(Look(RunIn(kModePlaying)).Has(kCentreBand, kPaddle));
    // The HUD's text changes with the run: the attract screen shows no score but 0.
    EXPECT_TRUE(Look().Has({kFieldW40 + 62, 20, 204, 240}, kTextColor));
    EXPECT_NE(Look(RunIn(kModeGameOver)).image.pixels, Look(RunIn(kModeRecorded)).image.pixels);
}

TEST(Well, MarksStrengthsTakesAPaletteAndHoldsStillWhereAsked) {
    RunControl run = RunIn(kModePlaying);
    constexpr uint8_t kStrengths[] = {1, 2, 3, 9};
    std::copy_n(kStrengths, 4, run.game.bricks[0]);
    const Look marked(run, 0, kWellSize, {}, {.palette = Palette::kTritan, .strength_marks = true});
    for (int column = 0; column < 4; ++column) {
        const int left = 40 * column + 19;
        int notches = 0;
        for (int x = left; x < left + 38; ++x) {
            notches += marked.At(x, 56) == kFloor && marked.At(x - 1, 56) != kFloor ? 1 : 0;
        }
        EXPECT_EQ(notches, std::min<int>(kStrengths[column], 3));
        EXPECT_EQ(marked.At(left + 19, 85), BrickColor(Palette::kTritan, 0, kStrengths[column]));
    }
    const RunControl over = RunIn(kModeGameOver);
    const EyeSettings steady = {.steady = true};
    const Look even(over, 0, kWellSize, {}, steady), odd(over, 220, kWellSize, {}, steady);
    EXPECT_EQ(even.image.pixels, odd.image.pixels);
}

TEST(Well, PutsTheFeeUnderTheOtherAmountsAndMovesNothing) {
    const RunControl run = RunIn(kModePlaying);
    FeeNote fee = {"Fee about 2,000,000 sats,", "too long for the board"};
    const Look without(run), calm(run, 0, kWellSize, fee);
    fee.warns = true;
    const Look warning(run, 0, kWellSize, fee);
    const auto inked = [](const Look& look, const Rect& rect) { return Inked(look.image, rect, kBgColor); };
    // Two lines of 20 pixels, below those at 194 and 214.
    const Rect lines = {kFieldW40 + 62, 234, 204, 40}, all = {0, 0, kWellSize.w, kWellSize.h};
    EXPECT_EQ(inked(without, lines), 0);
    for (const int y : {234, 254}) EXPECT_GT(inked(calm, {lines.x, y, lines.w, 20}), 40);
    EXPECT_EQ(inked(calm, {lines.Right() - 8, lines.y, 8, lines.h}), 0) << "cut";
    EXPECT_EQ(inked(calm, all) - inked(calm, lines), inked(without, all));
    EXPECT_NE(warning.image.pixels, calm.image.pixels);
}

TEST(Well, HintsToANewcomerWhereNothingElseStands) {
    // From where the paddle of 40-pixel cells ends to the field's end; and under the banner's 280 pixels.
    const Rect below_paddle = {18, 694, kFieldW40, 40}, below_banner = {18, 14 + 360 + 150, kFieldW40, 100};
    RunControl waiting = RunIn(kModePlaying), flying = waiting, paused = waiting, over = RunIn(kModeGameOver);
    flying.game.ball_live = true;
    paused.game.paused = true;
    over.game.ball_y = 0;
    const auto added = [](RunControl run, const Rect& where, const WellHints& hints) {
        const Look plain(run), hinted(run, 0, kWellSize, {}, {}, hints);
        const int all = Inked(hinted.image, {0, 0, kWellSize.w, kWellSize.h}, kFloor) -
                        Inked(plain.image, {0, 0, kWellSize.w, kWellSize.h}, kFloor);
        EXPECT_EQ(all, Inked(hinted.image, where, kFloor) - Inked(plain.image, where, kFloor)) << "elsewhere";
        return all;
    };
    EXPECT_GT(added(waiting, below_paddle, {.serve = true}), 100);
    EXPECT_EQ(added(flying, below_paddle, {.serve = true}), 0);
    EXPECT_EQ(added(paused, below_paddle, {.serve = true}), 0);
    EXPECT_GT(added(over, below_banner, {.record = true}), 100);
    EXPECT_EQ(added(waiting, below_banner, {.record = true}), 0);
    for (RunControl* const run : {&waiting, &over}) {
        run->game.cell_w = run->game.cell_h = 18;  // no room
        EXPECT_EQ(added(*run, below_paddle, {true, true}), 0);
    }
    waiting.game = NewGame(40, 40);
    waiting.game.paddle_x = waiting.game.ball_x = 0;
    const Look left(waiting, 0, kWellSize, {}, {}, {.serve = true});
    EXPECT_EQ(left.image.pixels.size(), Look(waiting).image.pixels.size());
    EXPECT_FALSE(left.Has({0, 694, 17, 40}, kTextColor)) << "it stays inside the field";
}

TEST(Well, BlinksTheGameOverBannerByTheClock) {
    const RunControl over = RunIn(kModeGameOver);
    const Look even(over, 0), odd(over, 220);
    const int middle = 14 + kFieldH40 / 2;
    const Rect first_line = {18 + 26, middle - 118, kFieldW40 - 52, 90};
    const Rect third_line = {18 + 26, middle + 40, kFieldW40 - 52, 48};
    EXPECT_TRUE(odd.Has(first_line, Rgb(0xFF2424)));
    EXPECT_FALSE(odd.Has(first_line, Rgb(0xB00808)));
    EXPECT_TRUE(even.Has(first_line, Rgb(0xB00808)));
    EXPECT_TRUE(odd.Has(third_line, Rgb(0xFFC86E)));
    EXPECT_TRUE(even.Has(third_line, Rgb(0xDC8C38)));
    for (const int edge : {24, 25}) EXPECT_EQ(odd.At(18 + edge, middle), Rgb(0xDC2830));
    EXPECT_EQ(odd.At(18 + 26, middle + 145), Rgb(0x08100C));
    // Nothing of the text leaves the box, its outline included.
    EXPECT_FALSE(odd.Has({18, middle - 118, 24, 200}, Rgb(0x140000)));
    // Nor where the cells are small: the lines are smaller, with room at both sides.
    for (const int cell : {18, 24}) {
        RunControl small = over;
        small.game.cell_w = small.game.cell_h = cell;
        small.final_score = INT64_MAX;
        const Look look(small, 220);
        const int cy = 14 + 9 * cell;
        for (const int x : {18 + 24, 18 + 13 * cell - 24 - 2}) {
            EXPECT_FALSE(look.Has({x, cy - 118, 2, 240}, Rgb(0x140000))) << cell;
        }
        const Rect middle_third = {18 + 24 + (13 * cell - 48) / 3, cy - 118, (13 * cell - 48) / 3, 90};
        EXPECT_TRUE(look.Has(middle_third, Rgb(0xFF2424))) << cell;
    }
    // The lost run stays visible behind it.
    EXPECT_EQ(odd.At(19 + 19, 55 + 19), kTopBrick);
    EXPECT_EQ(Look(RunIn(kModeRecorded), 0).image.pixels, Look(RunIn(kModeRecorded), 220).image.pixels);
    for (const Size size : {Size{1, 1}, Size{40, 3000}, Size{3000, 40}}) {
        EXPECT_EQ(Look(over, 0, size).image.w, size.w);
    }
}

}  // namespace
}  // namespace brickfall
