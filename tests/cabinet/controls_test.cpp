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
    constexpr Color kTop = Rgb(0x146448), kBottom = Rgb(0x020806), kBlinkTop = Rgb(0xFFF4C8);
    const auto accent = [](Color color, int of_255) { return BlendColor(color, kAccentColor, of_255); };
    const auto ground = [](Color color) { return BlendColor(color, kHeaderColor, 120); };
    const Color hot_top = accent(kTop, 90), hot_bottom = accent(kBottom, 70);
    const struct {
        const char* name;
        ButtonState button;
        ButtonLook look;
        Color top, bottom, border;
    } cases[] = {
        {"at rest", {}, {}, kTop, kBottom, kBorderColor},
        {"hot", {.hot = true}, {}, hot_top, hot_bottom, kAccentColor},
        {"pressed", {.hot = true, .pressed = true}, {}, hot_bottom, hot_top, kAccentColor},
        {"disabled", {.disabled = true}, {kHeaderColor}, ground(kTop), ground(kBottom), kBorderColor},
        {"blinking",
         {},
         {kBgColor, true},
         BlendColor(kAccentColor, kBlinkTop, 80),
         accent(kBottom, 80),
         kBorderColor},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Image image = Painted(c.button, c.look);
        EXPECT_EQ(PixelOf(image, 0, 0), c.look.background);  // the corner
        EXPECT_EQ(PixelOf(image, 70, 0), c.border);
        EXPECT_EQ(PixelOf(image, 0, 17), c.border);
        EXPECT_EQ(PixelOf(image, 30, 1), BlendColor(c.top, c.bottom, 1 * 255 / 33));
    }
    EXPECT_NE(Painted({.focused = true}).pixels, Painted({}).pixels);
    EXPECT_EQ(Painted({}, {}, {30, 1}).h, 1);  // one row has no bottom
    // The gear's hub is in the caption's colour.
    for (const auto& [disabled, hub] : {std::pair(false, Rgb(0xE6FFF4)), {true, kMutedColor}}) {
        const Image gear = Painted({.disabled = disabled}, {}, {44, 38}, kControlSettings);
        EXPECT_EQ(PixelOf(gear, 22, 19), hub);
    }
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
    shell.eyes.steady = true;
    const Color steady = record_top();
    EXPECT_EQ(record_top(), steady);
    shell.eyes.steady = false;
    shell.run.record_pending = false;
    const Color still = record_top();
    EXPECT_EQ(record_top(), still);
}

TEST(MessageBoxes, WearTheCabinetsLookAndAnswerToTheSameKeys) {
    CabinetFixture cabinet;
    Image shown;
    std::string keys;
    constexpr int kTurns = 3;  // of the box's loop, until it is up and has the focus
    WindowId owner = 0;
    owner = OpenWindow({.title = "Owner", .size = {400, 300}}, [&](WindowId, Message& message) {
        if (message.type != MessageType::kPosted) return false;
        if (message.id < kTurns) return PostWindowMessage(owner, message.id + 1);
        shown = GrabMessageBox();
        if (keys.empty()) StrokeKey(Key::kEscape);
        TypeText(keys);
        return true;
    });
    ShowWindow(owner);
    PumpMessages();
    const auto answer = [&](std::string_view typed, BoxButtons buttons, BoxIcon icon) {
        keys = typed;
        PostWindowMessage(owner, 0);
        return ShowMessageBox(owner, "Brickfall", "Enter?\n\nThree lives.", buttons, icon);
    };
    const struct {
        const char* keys;
        BoxButtons buttons;
        BoxIcon icon;
        bool answer;
        Color sign;
    } cases[] = {
        {"\n", BoxButtons::kOkCancel, BoxIcon::kQuestion, true, kAccentColor},
        {"", BoxButtons::kOkCancel, BoxIcon::kQuestion, false, kAccentColor},
        {"\n", BoxButtons::kYesNo, BoxIcon::kWarning, true, kGoldColor},
        {"n", BoxButtons::kYesNo, BoxIcon::kWarning, false, kGoldColor},
        {"", BoxButtons::kYesNo, BoxIcon::kWarning, false, kGoldColor},
        {"\n", BoxButtons::kOk, BoxIcon::kInformation, true, kAccentColor},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.keys);
        EXPECT_EQ(answer(c.keys, c.buttons, c.icon), c.answer);
        const Rect all = {0, 0, shown.w, shown.h};
        EXPECT_EQ(PixelOf(shown, 0, 0), kBgColor);
        for (const Color color : {c.sign, kTextColor, kBorderColor}) EXPECT_TRUE(HasColor(shown, all, color));
    }
    DestroyWindow(owner);
}

TEST(Logo, LosesItsGroundAndBecomesIcons) {
    LoadLogo(LogoFile());
    const Color ground = Rgb(0x123456);
    const Image drawn = DrawToImage({80, 84}, [&](Canvas& canvas) {
        canvas.Fill({0, 0, 80, 84}, ground);
        DrawLogo(canvas, 12, 68);
    });
    EXPECT_EQ(PixelOf(drawn, 13, 9), ground);
    EXPECT_NE(PixelOf(drawn, 49, 39), ground) << "the ball";
    EXPECT_EQ(MakeIcon(32).w, 32);
    EXPECT_EQ(StoredIcon(32).w, 32);
    LoadLogo(LogoFile().substr(0, 4'000));
    EXPECT_TRUE(MakeIcon(16).Empty());
    DrawToImage({80, 84}, [](Canvas& canvas) { DrawLogo(canvas, 12, 68); });  // nothing
    DropLogo();
}

}  // namespace
}  // namespace brickfall
