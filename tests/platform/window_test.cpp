// Windows: their places, and their end at any moment; and messages, posted from any thread and freed on every
// path.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "tests/platform/platform_fixture.h"

namespace brickfall {
namespace {

constexpr WindowOptions Tool(WindowId owner) {
    return {.title = "Tool", .size = {300, 200}, .size_is_client = true, .resizable = false, .owner = owner};
}

TEST(Windows, EndInOrderAndLeaveIdsThatDoNothing) {
    Notes order;
    const auto noting = [&](std::string name) {
        return [&order, name](WindowId window, Message& message) {
            if (message.type != MessageType::kDestroy) return false;
            // Its controls still stand.
            order.push_back(name + " " + ControlText(window, 1));
            DestroyWindow(window);  // it is at it already
            return true;
        };
    };
    const WindowId main = OpenWindow({.size = {400, 300}}, noting("main"));
    const WindowId child = OpenChild(main, {0, 0, 50, 50}, {}, noting("child"));
    const WindowId tool = OpenWindow(Tool(main), noting("tool"));
    for (const WindowId window : {main, child, tool}) {
        CreateText(window, 1, {0, 0, 80, 20}, "stands", nullptr);
        ShowWindow(window);
    }
    PumpMessages();
    EXPECT_TRUE(CloseByFrame(main));
    EXPECT_EQ(order, (Notes{"tool stands", "main stands", "child stands"}));
    PumpMessages();
    for (const WindowId gone : {main, child, tool, WindowId{0}}) {
        DestroyWindow(gone);
        BringToFront(gone);
        MoveWindow(gone, {1, 1});
        StartTimer(gone, 1, 1);
        FocusWindow(gone);
        CreateButton(gone, 1, {}, "x", nullptr);
        EXPECT_FALSE(WindowExists(gone) || HasFocus(gone) || TimerRunning(gone, 1));
        EXPECT_EQ(OpenChild(gone, {}, {}, nullptr), 0u);
        EXPECT_EQ(ControlText(gone, 1), "");
    }
}

// The window goes within each message that a program may end it by, and the toolkit carries on with its own
// work.
TEST(Windows, MayBeDestroyedByWhateverTheyAreTold) {
    const auto key_on = [](int control, Key key) {
        return [=](WindowId id) {
            FocusControl(id, control);
            PressKey(id, key);
            ReleaseKey(id, key);
        };
    };
    const struct {
        const char* what;
        MessageType type;
        std::function<void(WindowId)> cause;
    } kCases[] = {
        {"a key", MessageType::kKeyDown, key_on(0, Key::kP)},
        {"a key's release", MessageType::kKeyUp, key_on(0, Key::kP)},
        {"a button", MessageType::kCommand, [](WindowId id) { ClickControl(id, 1); }},
        {"a button by key", MessageType::kCommand, key_on(1, Key::kSpace)},
        {"a track bar", MessageType::kScroll, key_on(2, Key::kRight)},
        {"a timer", MessageType::kTimer, [](WindowId id) { FireTimer(id, 1); }},
        {"a post", MessageType::kPosted, [](WindowId id) { PostWindowMessage(id, 1); }},
        {"its frame", MessageType::kClose, [](WindowId id) { CloseByFrame(id); }},
        {"escape", MessageType::kClose, key_on(0, Key::kEscape)},
        {"a text's paint", MessageType::kTextStyle, [](WindowId id) { InvalidateControl(id, 3); }},
    };
    for (const auto& a_case : kCases) {
        SCOPED_TRACE(a_case.what);
        const NotedWindow owner;
        NotedWindow window(Tool(owner.id));
        CreateButton(window.id, 1, {0, 0, 80, 30}, "End", nullptr);
        CreateTrackBar(window.id, 2, {0, 40, 80, 30}, 0, 100, 50);
        CreateText(window.id, 3, {0, 80, 80, 30}, "text", nullptr);
        StartTimer(window.id, 1, 60'000);
        PumpMessages();
        int told = 0;
        window.handle = [&](Message& message) {
            if (message.type != a_case.type) return false;
            ++told;
            DestroyWindow(window.id);
            return true;
        };
        a_case.cause(window.id);
        PumpMessages();
        EXPECT_EQ(told, 1);
        EXPECT_FALSE(WindowExists(window.id));
        EXPECT_EQ(window.Times("destroy"), 1);
        EXPECT_TRUE(WindowExists(owner.id));
    }
}

// What the player sees while the program cannot answer, and what becomes of a hand that does not wait.
TEST(Waiting, ShowsItselfAtOnceAndDropsWhatIsClickedAndTypedMeanwhile) {
    NotedWindow window;
    CreateButton(window.id, 1, {20, 20, 100, 30}, "Pay", nullptr);
    CreateButton(window.id, 2, {20, 60, 100, 30}, "Other", nullptr);
    FocusControl(window.id, 1);
    window.TakePumped();
    const auto click = [&window](int control) {
        const Rect rect = ControlRect(window.id, control);
        PressPointer(window.id, {rect.x + 5, rect.y + 5});
        ReleasePointer(window.id, {rect.x + 5, rect.y + 5});
    };
    window.handle = [&](Message& message) {
        if (message.type != MessageType::kCommand || message.id != 1) return false;
        BeginWait(window.id, 1);
        EXPECT_EQ(window.painted_disabled, 1) << "painted before the work begins";
        EndWait();
        EXPECT_EQ(FocusedControl(window.id), 1);
        // These have happened before the loop is back.
        click(2);
        TypeText("\n");
        window.TapKey(Key::kP);
        return false;
    };
    click(1);
    click(2);  // in the same breath, and not told yet when the wait begins
    EXPECT_EQ(window.TakePumped(), (Notes{"command 1"}));
    window.handle = nullptr;
    click(2);
    EXPECT_EQ(window.TakePumped(), (Notes{"command 2"})) << "from then on as ever";
}

TEST(Monitors, AreFoundByWhereTheWindowIsMostAndHoldTheNewOnes) {
    const Rect area = {0, 0, 500, 360};
    const std::pair<Rect, Rect> inside[] = {{{10, 20, 300, 200}, {10, 20, 300, 200}},
                                            {{250, 200, 300, 200}, {200, 160, 300, 200}},
                                            {{-30, -40, 300, 200}, {0, 0, 300, 200}},
                                            {{90, 90, 600, 500}, {0, 0, 600, 500}}};
    for (const auto& [rect, moved] : inside) EXPECT_EQ(rect.MovedInside(area), moved);

    const Monitor left = {{0, 0, 1'000, 800}, {0, 0, 1'000, 760}};
    const Monitor right = {{1'000, 0, 600, 800}, {1'000, 40, 600, 760}};
    PretendMonitors({left, right});
    NotedWindow window({.size = {200, 100}});
    const std::pair<Point, const Monitor&> kCases[] = {{{850, 10}, left},
                                                       {{950, 10}, right},
                                                       {{-500, 10}, left},
                                                       {{2'000, -900}, right},
                                                       {{1'300, 900}, right}};
    for (const auto& [at, expected] : kCases) {
        MoveWindow(window.id, at);
        EXPECT_EQ(MonitorOf(window.id).work, expected.work) << at.x << "," << at.y;
    }
    PretendMonitors({{{0, 0, 9'000, 9'000}, {700, 800, 2'000, 1'000}}});
    const NotedWindow low({.title = "Low", .size = {300, 200}});
    EXPECT_EQ(WindowRect(low.id), (Rect{700, 800, 300, 200}));
    SetMinimumSize(low.id, {3'000, 10}, {10, 600});
    EXPECT_EQ(WindowRect(low.id), (Rect{700, 800, 2'000, 600})) << "no more than there is room for";
    PretendMonitors({});
    EXPECT_FALSE(Monitors().empty());
}

// Messages go on meanwhile, and so may its owner.
TEST(MessageBoxes, EndWithTheirOwnerAndWithTheProgram) {
    NotedWindow window, other;
    window.Take();
    window.handle = [&](Message& message) {
        if (message.type != MessageType::kPosted) return false;
        if (message.id == 2) DestroyWindow(window.id);
        FocusWindow(window.id);
        EXPECT_FALSE(HasFocus(window.id)) << "the box keeps the focus";
        return false;
    };
    for (const int number : {1, 2}) PostWindowMessage(window.id, number);
    EXPECT_FALSE(ShowMessageBox(window.id, "Title", std::string(100'000, 'x'), BoxButtons::kOkCancel,
                                BoxIcon::kWarning));
    EXPECT_EQ(window.Take(), (Notes{"posted 1 0", "destroy", "posted 2 0"}));

    other.handle = [](Message& message) {
        if (message.type == MessageType::kPosted) QuitMessageLoop(3);
        return false;
    };
    PostWindowMessage(other.id, 1);
    for (int i = 0; i < 2; ++i) {  // the second does not come up any more
        EXPECT_FALSE(ShowMessageBox(other.id, "Title", "Text", BoxButtons::kOk, BoxIcon::kNone));
    }
    EXPECT_EQ(RunMessageLoop(), 3) << "even before it begins";
    PostWindowMessage(other.id, 1);
    EXPECT_EQ(RunMessageLoop(), 3);
}

TEST(Messages, FreeTheirPayloadOnEveryPath) {
    const auto held = std::make_shared<int>();
    NotedWindow window;
    const auto post = [&](int number) {
        return PostWindowMessage(window.id, number, -20, MakePayload(held));
    };
    EXPECT_TRUE(post(1));
    EXPECT_EQ(held.use_count(), 2);
    EXPECT_EQ(window.TakePumped(), (Notes{"create", "posted 1 -20"}));
    EXPECT_EQ(held.use_count(), 1) << "nobody took it";

    // A message to a window that its own predecessor destroys.
    std::unique_ptr<Payload> taken;
    window.handle = [&](Message& message) {
        if (message.type != MessageType::kPosted) return false;
        DestroyWindow(window.id);
        taken = std::move(message.payload);
        return true;
    };
    EXPECT_TRUE(post(2) && post(3));
    PumpMessages();
    EXPECT_EQ(held.use_count(), 2) << "the second is not told";
    EXPECT_FALSE(post(4));
    EXPECT_EQ(held.use_count(), 2);
    EXPECT_EQ(TakePayload<int>(taken), 0) << "of another type";
    EXPECT_EQ(TakePayload<std::shared_ptr<int>>(taken), held);
}

TEST(Messages, ArriveFromManyThreadsInTheOrderOfEachUntilTheWindowGoes) {
    constexpr int kThreads = 3, kMessages = 2'000;
    const auto held = std::make_shared<int>();
    std::atomic<int> running = kThreads;
    int last[kThreads] = {-1, -1, -1}, arrived = 0;
    NotedWindow window;
    window.handle = [&](Message& message) {
        if (message.type != MessageType::kPosted) return false;
        EXPECT_LT(last[message.id], message.value);
        last[message.id] = static_cast<int>(message.value);
        if (++arrived == kMessages) DestroyWindow(window.id);  // in the middle of it
        return true;
    };
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            for (int i = 0; i < kMessages; ++i) {
                PostWindowMessage(window.id, thread, i, MakePayload(held));
            }
            --running;
        });
    }
    while (running > 0) PumpMessages();
    PumpMessages();
    EXPECT_EQ(arrived, kMessages);
    EXPECT_EQ(held.use_count(), 1);
}

}  // namespace
}  // namespace brickfall
