// Keys as they are, whatever a window system makes of one that is held, and of a focus that comes and goes.
#include <gtest/gtest.h>

#include "tests/platform/platform_fixture.h"

namespace brickfall {
namespace {

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
