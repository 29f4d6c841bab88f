#include "cabinet/controls.h"

#include <gtest/gtest.h>

#include "cabinet/images.h"
#include "cabinet/shell_state.h"
#include "tests/cabinet/cabinet_fixture.h"

namespace brickfall {
namespace {

Image Painted(ButtonState button, const ButtonLook& look = {}, Size size = {140, 34}, int id = 1005) {
    MakeTheme();
    return DrawToImage(size, [&](Canvas& canvas) {
        Message item{.type = MessageType::kPaintButton, .id = id, .size = size};
        item.canvas = &canvas;
        item.button = button;
        PaintButton(0, item, look);
    });
}

TEST(Buttons, ShowTheirState) {
    constexpr Color kTop = Rgb(0x146448), kBottom = Rgb(0x020806);
    const auto row_1 = [](Color top, Color bottom) { return BlendColor(top, bottom, 1 * 255 / 33); };
    const auto toward = [&](Color color, int of_255) {
        return row_1(BlendColor(kTop, color, of_255), BlendColor(kBottom, color, of_255));
    };
    const Color hot_top = BlendColor(kTop, kAccentColor, 90),
                hot_bottom = BlendColor(kBottom, kAccentColor, 70);
    const Color blinking = BlendColor(kAccentColor, Rgb(0xFFF4C8), 80);
    const struct {
        const char* name;
        ButtonState button;
        ButtonLook look;
        Color top, border;  // top: of row 1
    } cases[] = {
        {"at rest", {}, {}, row_1(kTop, kBottom), kBorderColor},
        {"hot", {.hot = true}, {}, row_1(hot_top, hot_bottom), kAccentColor},
        {"pressed", {.hot = true, .pressed = true}, {}, row_1(hot_bottom, hot_top), kAccentColor},
        {"disabled", {.disabled = true}, {kHeaderColor}, toward(kHeaderColor, 120), kBorderColor},
        {"blinking",
         {},
         {kBgColor, true},
         row_1(blinking, BlendColor(kBottom, kAccentColor, 80)),
         kBorderColor},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Image image = Painted(c.button, c.look);
        EXPECT_EQ(PixelOf(image, 0, 0), c.look.background);  // the corner
        EXPECT_EQ(PixelOf(image, 70, 0), c.border);
        EXPECT_EQ(PixelOf(image, 0, 17), c.border);
        EXPECT_EQ(PixelOf(image, 30, 1), c.top);
    }
    EXPECT_NE(Painted({.focused = true}).pixels, Painted({}).pixels);
    EXPECT_EQ(Painted({}, {}, {30, 1}).h, 1);  // one row has no bottom
    // The gear is drawn: its hub in the caption's colour.
    EXPECT_EQ(PixelOf(Painted({}, {}, {44, 38}, kControlSettings), 22, 19), Rgb(0xE6FFF4));
    EXPECT_EQ(PixelOf(Painted({.disabled = true}, {}, {44, 38}, kControlSettings), 22, 19), kMutedColor);
}

TEST(Buttons, CallThePlayerUntilTheScoreIsRecorded) {
    CabinetFixture cabinet;
    cabinet.BeginRun();
    shell.run.game.lives = 1;
    shell.run.game.game_over = true;
    FinishRun(shell.run, shell.driver.run);
    const auto record_top = [&cabinet] {
        cabinet.Tick(280);
        return PixelShown(cabinet.main, 16 + 60, 142);
    };
    const Color first = record_top();
    EXPECT_NE(record_top(), first);
    EXPECT_EQ(record_top(), first);
    shell.run.record_pending = false;
    const Color still = record_top();
    EXPECT_EQ(record_top(), still);
}

TEST(Logo, LosesItsGroundAndBecomesIcons) {
    LoadLogo(LogoFile());
    const Image drawn = DrawToImage({80, 84}, [](Canvas& canvas) {
        canvas.Fill({0, 0, 80, 84}, Rgb(0x123456));
        DrawLogo(canvas, 12, 68);
    });
    EXPECT_EQ(PixelOf(drawn, 13, 9), Rgb(0x123456));   // the ground is gone
    EXPECT_NE(PixelOf(drawn, 49, 39), Rgb(0x123456));  // the ball stands
    EXPECT_EQ(MakeIcon(32).w, 32);
    EXPECT_EQ(MakeIcon(16).h, 16);
    for (const std::string_view broken :
         {std::string_view(), std::string_view("PNG"), LogoFile().substr(0, 4'000)}) {
        LoadLogo(broken);
        EXPECT_TRUE(MakeIcon(16).Empty());
    }
    EXPECT_EQ(StoredIcon(32).w, 32);
    DropLogo();
}

}  // namespace
}  // namespace brickfall
