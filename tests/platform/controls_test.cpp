// Controls as a person uses them, by pointer and by keyboard, and what a screen reader is told; and keys as
// they are, whatever a window system makes of one that is held, and of a focus that comes and goes.
#include <gtest/gtest.h>

#include <string>

#include "tests/platform/platform_fixture.h"

namespace brickfall {
namespace {

const Font& SmallFont() {
    static const Font& font = *new Font(MakeFont("Segoe UI", 16, 400, FontQuality::kClearType));
    return font;
}

bool operator==(const ButtonState& a, const ButtonState& b) {
    return a.hot == b.hot && a.pressed == b.pressed && a.disabled == b.disabled && a.focused == b.focused;
}

struct ButtonStory : NotedWindow {
    ButtonStory() {
        CreateButton(id, 1, {20, 20, 100, 30}, "One", SmallFont());
        CreateButton(id, 2, {20, 60, 100, 30}, "Two", SmallFont());
        EnableWindowControl(id, 2, false);
        TakePumped();
    }
    ButtonState Look(int control) {
        InvalidateControl(id, control);
        PumpMessages();
        return button;
    }
};

TEST(Buttons, ClickOnlyWhenReleasedInside) {
    ButtonStory window;
    const Point inside = {30, 30}, outside = {300, 200};
    EXPECT_TRUE(window.Look(1) == ButtonState{});
    MovePointer(window.id, inside);
    EXPECT_TRUE(window.Look(1) == (ButtonState{.hot = true}));
    PressPointer(window.id, inside);
    EXPECT_TRUE(window.Look(1) == (ButtonState{.hot = true, .pressed = true}));
    MovePointer(window.id, outside);
    EXPECT_TRUE(window.Look(1) == (ButtonState{.hot = true})) << "still held, and off it";
    ReleasePointer(window.id, outside);
    EXPECT_EQ(window.TakePumped(), Notes{}) << "dragged off";
    EXPECT_TRUE(window.Look(1) == ButtonState{});

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
    EXPECT_TRUE(window.Look(2) == (ButtonState{.disabled = true}));
}

TEST(Buttons, ArePressedByReturnAndBlankAndLeaveTheArrowsToTheWindow) {
    ButtonStory window;
    PressTab();
    EXPECT_EQ(FocusedControl(window.id), 1);
    EXPECT_FALSE(HasFocus(window.id));
    EXPECT_TRUE(window.Look(1) == (ButtonState{.focused = true}));
    window.Take();  // the release of the key that has brought the focus is the new one's

    PressKey(window.id, Key::kSpace);
    EXPECT_TRUE(window.Look(1).pressed);
    PressKey(window.id, Key::kSpace, /*is_repeat=*/true);
    EXPECT_EQ(window.Take(), Notes{});
    ReleaseKey(window.id, Key::kSpace);
    EXPECT_EQ(window.TakePumped(), (Notes{"command 1"}));
    TypeText("\n");
    EXPECT_EQ(window.TakePumped(), (Notes{"command 1"}));

    window.TapKey(Key::kLeft);
    window.TapKey(Key::kP);
    EXPECT_EQ(window.Take(), (Notes{"down left", "up left", "down p", "up p"}));
    EXPECT_EQ(FocusedControl(window.id), 1);

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
    CreateTrackBar(window.id, 3, {0, 20, 80, 20}, 0, 10, 5);
    CreateText(window.id, 4, {0, 40, 80, 20}, "link", SmallFont(), /*clickable=*/true);
    CreateEdit(window.id, 5, {0, 60, 80, 60}, SmallFont(), 10, {}, {});
    CreateButton(window.id, 6, {0, 120, 80, 20}, "", SmallFont());
    EnableWindowControl(window.id, 6, false);
    for (const auto& [id, name] :
         {std::pair(3, "Volume"), std::pair(5, "Report"), std::pair(6, "Settings")}) {
        SetAccessibleControlName(window.id, id, name);
        EXPECT_EQ(AccessibleName(window.id, id), name);
    }
    EXPECT_EQ(AccessibleName(window.id, 1), "Wallet: not connected");
    EXPECT_EQ(AccessibleName(window.id, 2), "Play");
    SetControlText(window.id, 1, "Wallet: connected");
    EXPECT_EQ(AccessibleName(window.id, 1), "Wallet: connected");

    const std::vector<uint32_t> none = GrabWindow(window.id).pixels;
    for (const int next : {2, 3, 4, 5, 2}) {
        PressTab();
        EXPECT_EQ(FocusedControl(window.id), next);
        // The test's own buttons are painted alike in every state.
        EXPECT_TRUE(next == 2 || GrabWindow(window.id).pixels != none) << next;
        EXPECT_EQ(PixelOf(GrabWindow(window.id), 0, 90) == Rgb(0x000000), next != 5) << "the edit's edge";
    }
    PressTab(/*backwards=*/true);
    EXPECT_EQ(FocusedControl(window.id), 5);
    FocusWindow(window.id);
    EXPECT_EQ(FocusedControl(window.id), 0);
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
    } kCases[] = {{"", rect, false},
                  {"one line", first, true},
                  {"one line", second, false},
                  {"two\nlines", second, true},
                  {"words that are many more than fit into a row", second, true},
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

TEST(Texts, AreClickedOnlyWhenMadeForIt) {
    NotedWindow window;
    CreateText(window.id, 1, {0, 0, 80, 20}, "plain", SmallFont());
    CreateText(window.id, 2, {0, 20, 80, 20}, "link", SmallFont(), /*clickable=*/true);
    window.Take();
    for (const int text : {1, 2}) ClickControl(window.id, text);
    EXPECT_EQ(window.Take(), (Notes{"command 2"}));
    FocusControl(window.id, 2);
    TypeText("\n");
    EXPECT_EQ(window.TakePumped(), (Notes{"command 2"}));
    EXPECT_EQ(AccessibleRole(window.id, 2), "link");

    SetTextClickable(window.id, 2, false);
    EXPECT_EQ(FocusedControl(window.id), 0);
    EXPECT_EQ(AccessibleRole(window.id, 2), "text");
    ClickControl(window.id, 2);
    PressTab();
    EXPECT_EQ(FocusedControl(window.id), 0);
    EXPECT_EQ(window.Times("command 2"), 0);
    SetTextClickable(window.id, 1, true);
    PressTab();
    EXPECT_EQ(FocusedControl(window.id), 1);
    EXPECT_EQ(AccessibleRole(window.id, 1), "link");
}

TEST(TrackBars, AreMovedByTheArrowsWithinTheirRange) {
    NotedWindow window;
    CreateTrackBar(window.id, 7, {0, 0, 200, 30}, 0, 100, 99);
    FocusControl(window.id, 7);
    for (const Key key : {Key::kRight, Key::kRight, Key::kRight, Key::kLeft}) window.TapKey(key);
    EXPECT_EQ(window.Times("scroll 7 100"), 1);
    EXPECT_EQ(window.Times("scroll 7 99"), 1);
    EXPECT_EQ(window.Times("down left"), 0) << "the key is the bar's";
}

struct EditStory : NotedWindow {
    EditStory() {
        CreateEdit(id, 1, {0, 0, 200, 80}, SmallFont(), 10, Rgb(0xDCF0E4), Rgb(0x0C1612));
        FocusControl(id, 1);
        Take();
    }
    std::string Content() { return ControlText(id, 1); }
};

TEST(Edits, HoldNoMoreThanTheirLimitHoweverItComesIn) {
    const std::string smile = "\xF0\x9F\x98\x80";  // two units
    EditStory edit;
    TypeText("12345\n789" + smile);
    EXPECT_EQ(edit.Content(), "12345\n789") << "half of it would be a broken character";
    TypeText("0\nX");
    PasteText("more");
    EXPECT_EQ(edit.Content(), "12345\n7890");

    PressControl('A');
    PasteText("ab\r\n" + smile + "cde" + smile + smile);
    EXPECT_EQ(edit.Content(), "ab\n" + smile + "cde" + smile) << "in place of the selection";
    PressControl('Z');
    EXPECT_EQ(edit.Content(), "12345\n7890");
    PressControl('Y');
    EXPECT_EQ(edit.Content(), "ab\n" + smile + "cde" + smile);

    PressControl('A');
    PasteText("<b>9</b>" + std::string(4'000'000, 'x'));
    EXPECT_EQ(edit.Content(), "<b>9</b>xx");
    SetControlText(edit.id, 1, "123456789" + smile);
    EXPECT_EQ(edit.Content(), "123456789");
    PasteText(smile);
    EXPECT_EQ(edit.Content(), "123456789");
}

TEST(Edits, UseTheKeysOfTheirTextAndLeaveTheOthers) {
    EditStory edit;
    for (const Key key : {Key::kP, Key::kSpace, Key::kLeft, Key::kRight}) edit.TapKey(key);
    EXPECT_EQ(edit.Content(), "p ");
    for (const std::string& note : edit.Take()) EXPECT_NE(note.substr(0, 4), "down") << note;
    PressKey(edit.id, Key::kEscape);
    EXPECT_EQ(edit.Times("down escape"), 1);
    EXPECT_EQ(PixelOf(GrabWindow(edit.id), 100, 60), Rgb(0x0C1612));
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
    ReleaseKey(window.id, Key::kOther);
}

TEST(Keys, AreUpWithoutTheFocusWhereTheWindowSystemDoesNotTell) {
    NotedWindow window;
    for (const Key key : {Key::kLeft, Key::kRight}) PressKey(window.id, key);
    PretendFocusLost(true);
    EXPECT_FALSE(KeyIsDown(Key::kLeft) || KeyIsDown(Key::kRight) || HasFocus(window.id));
    FocusWindow(window.id);
    EXPECT_FALSE(HasFocus(window.id)) << "it takes nothing from the other program";
    PressKey(window.id, Key::kP);
    EXPECT_FALSE(KeyIsDown(Key::kP)) << "it is the other program's";

    PretendFocusLost(false);
    EXPECT_TRUE(HasFocus(window.id));
    EXPECT_FALSE(KeyIsDown(Key::kLeft)) << "nothing is known of it yet";
    ReleaseKey(window.id, Key::kLeft, /*made_up_by_repeat=*/true);
    PressKey(window.id, Key::kLeft, /*is_repeat=*/true);
    EXPECT_TRUE(KeyIsDown(Key::kLeft)) << "it has been held all the time";
    ReleaseKey(window.id, Key::kLeft);
    EXPECT_FALSE(KeyIsDown(Key::kLeft));
}

TEST(Keys, GoToTheTopLevelWindowAndAreKnownInAllOfThem) {
    bool child_got_one = false;
    NotedWindow window;
    OpenChild(window.id, {0, 0, 50, 50}, {}, [&](WindowId, Message& message) {
        child_got_one |= message.type == MessageType::kKeyDown;
        return false;
    });
    NotedWindow tool({.size = {100, 100}, .resizable = false, .owner = window.id});
    PressKey(window.id, Key::kP);
    EXPECT_EQ(window.Times("down p"), 1);
    EXPECT_FALSE(child_got_one);
    ReleaseKey(tool.id, Key::kP);  // the focus has moved meanwhile
    EXPECT_FALSE(KeyIsDown(Key::kP));
    EXPECT_EQ(tool.Times("up p"), 1);
}

}  // namespace
}  // namespace brickfall
