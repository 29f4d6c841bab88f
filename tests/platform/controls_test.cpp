// Controls as a person uses them, by pointer and by keyboard, and a key that is held.
#include <gtest/gtest.h>

#include <string>

#include "tests/platform/platform_fixture.h"

namespace brickfall {
namespace {

const Font& SmallFont() {
    static const Font& font = *new Font(MakeFont("Segoe UI", 16, 400, FontQuality::kClearType));
    return font;
}

struct ButtonStory : NotedWindow {
    ButtonStory() {
        CreateButton(id, 1, {20, 20, 100, 30}, "One", SmallFont());
        CreateButton(id, 2, {20, 60, 100, 30}, "Two", SmallFont());
        EnableWindowControl(id, 2, false);
        TakePumped();
    }
    // As it is painted now.
    std::string Look(int control) {
        InvalidateControl(id, control);
        PumpMessages();
        std::string look = button.hot ? "hot " : "";
        if (button.pressed) look += "pressed ";
        if (button.disabled) look += "disabled ";
        return look + (button.focused ? "focused " : "");
    }
};

TEST(Buttons, ClickOnlyWhenReleasedInside) {
    ButtonStory window;
    const Point inside = {30, 30}, outside = {300, 200};
    EXPECT_EQ(window.Look(1), "");
    MovePointer(window.id, inside);
    EXPECT_EQ(window.Look(1), "hot ");
    PressPointer(window.id, inside);
    EXPECT_EQ(window.Look(1), "hot pressed ");
    MovePointer(window.id, outside);
    EXPECT_EQ(window.Look(1), "hot ") << "still held, and off it";
    ReleasePointer(window.id, outside);
    EXPECT_EQ(window.TakePumped(), Notes{}) << "dragged off";
    EXPECT_EQ(window.Look(1), "");

    PressPointer(window.id, inside);
    MovePointer(window.id, outside);
    ReleasePointer(window.id, inside);
    EXPECT_EQ(window.TakePumped(), (Notes{"command 1"})) << "dragged off and back";
    PressPointer(window.id, outside);
    ReleasePointer(window.id, inside);
    EXPECT_EQ(window.TakePumped(), Notes{}) << "pressed elsewhere";
    EXPECT_TRUE(HasFocus(window.id)) << "the pointer leaves the focus where it is";

    PressPointer(window.id, inside);
    EnableWindowControl(window.id, 1, false);
    ReleasePointer(window.id, inside);
    ClickControl(window.id, 2);
    EXPECT_EQ(window.TakePumped(), Notes{}) << "disabled";
    EXPECT_EQ(window.Look(2), "disabled ");
}

TEST(Buttons, ArePressedByReturnAndBlankAndLeaveTheArrowsToTheWindow) {
    ButtonStory window;
    PressTab();
    EXPECT_EQ(window.Look(1), "focused ");
    window.Take();  // the release of the key that has brought the focus is the new one's

    PressKey(window.id, Key::kSpace);
    EXPECT_EQ(window.Look(1), "hot pressed focused ");
    PressKey(window.id, Key::kSpace, /*is_repeat=*/true);
    EXPECT_EQ(window.Take(), Notes{});
    ReleaseKey(window.id, Key::kSpace);
    TypeText("\n");
    EXPECT_EQ(window.TakePumped(), (Notes{"command 1", "command 1"}));
    window.TapKey(Key::kLeft);
    EXPECT_EQ(window.Take(), (Notes{"down left", "up left"}));

    // A blank that is under way when the button is disabled presses nothing, and the focus does not wander.
    CreateButton(window.id, 3, {20, 100, 100, 30}, "Three", SmallFont());
    PressKey(window.id, Key::kSpace);
    EnableWindowControl(window.id, 1, false);
    EXPECT_TRUE(HasFocus(window.id));
    window.Take();
    ReleaseKey(window.id, Key::kSpace);
    EXPECT_EQ(window.TakePumped(), (Notes{"up space"}));
}

// One of each kind, the place on the screen being another order than that of their creation.
TEST(Controls, TakeTheFocusInTheOrderOfTheirCreationShowItAndHaveNames) {
    NotedWindow window;
    CreateText(window.id, 1, {0, 0, 80, 20}, "Wallet: not connected", SmallFont());
    CreateButton(window.id, 2, {0, 140, 80, 20}, "Play", SmallFont());
    CreateTrackBar(window.id, 3, {0, 20, 80, 20}, 0, 100, 99);
    CreateText(window.id, 4, {0, 40, 80, 20}, "link", SmallFont(), /*clickable=*/true);
    CreateEdit(window.id, 5, {0, 60, 80, 60}, SmallFont(), 10, {}, {});
    SetAccessibleControlName(window.id, 5, "Report");
    EXPECT_EQ(AccessibleName(window.id, 5), "Report");
    SetControlText(window.id, 1, "Wallet: connected");
    EXPECT_EQ(AccessibleName(window.id, 1), "Wallet: connected");

    ClickControl(window.id, 1);
    EXPECT_EQ(window.Times("command 1"), 0) << "a plain text";
    SetTextClickable(window.id, 1, true);
    const std::vector<uint32_t> none = GrabWindow(window.id).pixels;
    for (const int next : {1, 2, 3, 4, 5, 1}) {
        PressTab();
        EXPECT_EQ(FocusedControl(window.id), next);
        // The test's own buttons are painted alike in every state.
        EXPECT_TRUE(next == 2 || GrabWindow(window.id).pixels != none) << next;
        EXPECT_EQ(PixelOf(GrabWindow(window.id), 0, 90) == Rgb(0x000000), next != 5) << "the edit's edge";
    }
    PressTab(/*backwards=*/true);
    EXPECT_EQ(FocusedControl(window.id), 5);
    FocusControl(window.id, 3);
    window.Take();
    for (const Key key : {Key::kRight, Key::kRight, Key::kLeft}) window.TapKey(key);
    EXPECT_EQ(window.Times("scroll 3 100"), 1) << "and no further";
    EXPECT_EQ(window.Times("scroll 3 99"), 1);
    EXPECT_EQ(window.Times("down left"), 0) << "the key is the bar's";
    FocusWindow(window.id);
    EXPECT_TRUE(HasFocus(window.id));
}

TEST(Texts, ShowTheirStyleAndKeepWithinTheirRectangle) {
    NotedWindow window;
    const Rect rect = {20, 20, 200, 40}, first = {20, 20, 200, 18}, second = {20, 38, 200, 18};
    CreateText(window.id, 1, rect, "", SmallFont());
    const auto inked = [&](std::string_view text, const Rect& where) {
        SetControlText(window.id, 1, text);
        EXPECT_EQ(ControlText(window.id, 1), text);
        return Inked(GrabWindow(window.id), where, window.style.background);
    };
    const struct {
        const char* text;
        Rect where;
        bool has_ink;
    } kCases[] = {
        {"one line", first, true},      {"one line", second, false},
        {"two\nlines", second, true},   {"words that are many more than fit into a row", second, true},
        {"<b></b>", first, true},  // plain text only
        {"\x01\x02\t\x7F", rect, false}};
    for (const auto& c : kCases) EXPECT_EQ(inked(c.text, c.where) > 0, c.has_ink) << c.text;
    EXPECT_EQ(inked(std::string(100'000, 'W'), {20, 61, 200, 200}), 200 * 200) << "the window's own ground";
    std::string hostile;
    while (hostile.size() < 100'000) hostile += "\xE2\x80\xAE\xF0\x9F\xFF\xCC\x81\r\n\x1B[2J";
    inked(hostile, rect);

    window.style = {Rgb(0xFF0000), Rgb(0x0000FF), true};
    EXPECT_GT(inked("II", first), 0);
    EXPECT_EQ(PixelOf(GrabWindow(window.id), 219, 59), Rgb(0x0000FF));
}

TEST(Edits, HoldNoMoreThanTheirLimitHoweverItComesIn) {
    const std::string smile = "\xF0\x9F\x98\x80";  // two units
    NotedWindow edit;
    const auto content = [&edit] { return ControlText(edit.id, 1); };
    CreateEdit(edit.id, 1, {0, 0, 200, 80}, SmallFont(), 10, Rgb(0xDCF0E4), Rgb(0x0C1612));
    FocusControl(edit.id, 1);
    EXPECT_EQ(PixelOf(GrabWindow(edit.id), 100, 60), Rgb(0x0C1612));
    TypeText("12345\n789" + smile);
    EXPECT_EQ(content(), "12345\n789") << "half of it would be a broken character";
    TypeText("0\nX");
    PasteText("more");
    EXPECT_EQ(content(), "12345\n7890");

    PressControl('A');
    PasteText("ab\r\n" + smile + "cde" + smile + smile);
    EXPECT_EQ(content(), "ab\n" + smile + "cde" + smile) << "in place of the selection";
    PressControl('Z');
    EXPECT_EQ(content(), "12345\n7890");
    PressControl('A');
    PasteText("<b>9</b>" + std::string(4'000'000, 'x'));
    EXPECT_EQ(content(), "<b>9</b>xx");
    SetControlText(edit.id, 1, "123456789" + smile);
    EXPECT_EQ(content(), "123456789");
}

TEST(Fields, AreOneLineAndLeaveReturnToTheWindow) {
    NotedWindow window;
    CreateField(window.id, 1, {0, 0, 200, 30}, SmallFont(), 5, Rgb(0xDCF0E4), Rgb(0x0C1612));
    FocusControl(window.id, 1);
    window.Take();
    TypeText("ab\ncdefg");
    EXPECT_EQ(ControlText(window.id, 1), "abcde");
    EXPECT_EQ(window.Take(), (Notes{"down return"}));
    PressControl('A');
    PasteText("1\n2");
    EXPECT_EQ(ControlText(window.id, 1).find('\n'), std::string::npos);
    EXPECT_EQ(PixelOf(GrabWindow(window.id), 150, 15), Rgb(0x0C1612));
}

TEST(Keys, AreHeldThroughAutoRepeat) {
    NotedWindow window;
    window.Take();
    PressKey(window.id, Key::kLeft);
    for (int i = 0; i < 2; ++i) {
        ReleaseKey(window.id, Key::kLeft, /*made_up_by_repeat=*/true);
        EXPECT_TRUE(KeyIsDown(Key::kLeft));
        PressKey(window.id, Key::kLeft, /*is_repeat=*/true);
    }
    PressKey(window.id, Key::kRight);
    EXPECT_TRUE(KeyIsDown(Key::kLeft) && KeyIsDown(Key::kRight));
    ReleaseKey(window.id, Key::kLeft);
    EXPECT_TRUE(!KeyIsDown(Key::kLeft) && KeyIsDown(Key::kRight));
    ReleaseKey(window.id, Key::kRight);
    EXPECT_EQ(window.Take(), (Notes{"down left", "down left again", "down left again", "down right",
                                    "up left", "up right"}));
    PressKey(window.id, Key::kOther);
    EXPECT_FALSE(KeyIsDown(Key::kOther));
}

}  // namespace
}  // namespace brickfall
