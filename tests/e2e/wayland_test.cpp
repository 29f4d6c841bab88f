// The paid loop on a Wayland desktop, by the keyboard alone: its compositor takes keys from wtype, and says
// itself where the windows stand.
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "base/workers.h"
#include "cabinet/shell_state.h"
#include "deployment/deployment.h"
#include "platform/automation.h"
#include "tests/e2e/desktop_robot.h"
#include "tests/e2e/paid_desktop.h"
#include "tests/support/child_process.h"

namespace brickfall {
namespace {

constexpr char kTree[] = "swaymsg -r -t get_tree";

void Type(const std::string& strokes) { RunShell("wtype " + strokes); }

// `strokes` go on while the test looks.
void TypeMeanwhile(const std::string& strokes) { RunShell("wtype " + strokes + " >/dev/null 2>&1 &"); }

void BringForward(const std::string& title) { RunShell("swaymsg '[title=\"^" + title + "$\"] focus'"); }

// The focus goes to the window itself, from there to the button that Tab comes to after so many.
void PressButton(int tabs) {
    FocusWindow(shell.main);
    std::string strokes;
    for (int i = 0; i < tabs; ++i) strokes += "-k Tab ";
    Type(strokes + "-k space");
}

Rect RectOfNode(const nlohmann::json& rect) {
    return {rect.value("x", 0), rect.value("y", 0), rect.value("width", 0), rect.value("height", 0)};
}

// The desktop beside its panel, and the cabinet's window with the compositor's frame.
struct Places {
    Rect room;
    Rect window;
};
void FindPlaces(const nlohmann::json& node, Places& places) {
    if (node.value("type", "") == "workspace" && node.value("name", "") == "1") {
        places.room = RectOfNode(node["rect"]);
    }
    if (node["name"] == kMainTitle) {
        const Rect inside = RectOfNode(node["rect"]), title = RectOfNode(node["deco_rect"]);
        places.window = FromEdges(inside.x, title.y, inside.Right(), inside.Bottom());
    }
    for (const char* const children : {"nodes", "floating_nodes"}) {
        for (const nlohmann::json& child : node[children]) FindPlaces(child, places);
    }
}
Places PlacesOnScreen() {
    Places places;
    FindPlaces(nlohmann::json::parse(RunShell(kTree)), places);
    return places;
}

// Presses Return in the next window that comes: a modal box runs a loop of its own.
void AcceptNextWindow() {
    const auto windows = [] {
        ChildProcess shell("/bin/sh", {"-c", std::string(kTree) + " | grep -c floating_con"});
        return shell.ReadLine().value_or("");
    };
    StartWorker([windows, before = windows()] {
        for (int look = 0; look < 200 && windows() == before; ++look) SleepMs(100);
        ChildProcess("/bin/sh", {"-c", "wtype -s 300 -k Return"}).Wait();
    });
}

TEST(Wayland, TakesThePaidLoopFromConnectToRecord) {
    PaidDesktop desktop;
    sandbox::Sandbox& box = desktop.services.box;
    EXPECT_SOON(HasFocus(shell.main));
    RunFor(300);
    const Places places = PlacesOnScreen();
    EXPECT_GT(places.room.h, 1'000);
    EXPECT_LT(places.room.h, 1'200) << "the panel";
    EXPECT_GT(places.window.h, 1'000);
    EXPECT_EQ(places.window, places.window.MovedInside(places.room));
    EXPECT_LE(places.window.Bottom(), places.room.Bottom());
    Screenshot("wayland-1-attract");

    BringForward("Pouch .sandbox.");
    EXPECT_SOON(!HasFocus(shell.main));
    Type("-k Tab -k space");
    ASSERT_TRUE(WaitFor("play money", [&] { return box.TotalFunded() == 100'000; }));
    BringForward(kMainTitle);
    PressButton(3);  // Connect
    ASSERT_TRUE(WaitForStatus("Waiting for Pouch to approve"));
    RunFor(700);
    BringForward("Pouch .sandbox.");
    Type("-k Tab -k space");  // the name of a wallet that is there stands
    ASSERT_TRUE(WaitForStatus("Connected. Play when you are funded."));
    ASSERT_TRUE(WaitFor("the name on the host", [&] { return box.Identity("player").has_value(); }));
    EXPECT_TRUE(WaitFor("the balance", [] { return Text(1004) == "Pouch balance:  0.00100000 BSV"; }));

    // An impatient hand while the name is looked up: what it presses meanwhile asks for nothing more.
    BringForward(kMainTitle);
    desktop.FreezeLate();
    FocusControl(shell.main, 1005);
    Type("-k space -s 400 -k space -k space");
    EXPECT_TRUE(WaitForStatus("This identity is frozen. No play."));
    RunFor(1'500);
    EXPECT_EQ(desktop.LookUps(), 1);
    box.ClearFaults();

    AcceptNextWindow();
    PressButton(2);  // Play
    ASSERT_TRUE(WaitForStatus("Entered. Blocks incoming."));
    EXPECT_EQ(box.BalanceOf(kArcadeHouseAddress), 2'000);
    EXPECT_EQ(box.BalanceOf(kArcadePotAddress), 3'000);

    ASSERT_EQ(shell.run.mode, kModePlaying);
    Type("-k space");
    EXPECT_SOON(shell.run.game.ball_live);
    const auto& events = shell.run.tape.events;
    const auto codes_after = [&events](std::size_t count) {
        std::vector<int> codes;
        for (std::size_t i = count; i < events.size(); ++i) codes.push_back(events[i].code);
        return codes;
    };
    // Held for longer than it takes a key to repeat.
    const std::size_t before = events.size();
    Type("-P Left -s 900 -p Left");
    EXPECT_SOON(codes_after(before) == (std::vector<int>{kInputLeftDown, kInputLeftUp}));
    Screenshot("wayland-2-playing");
    // Another window takes the focus: the run goes on, and the key, of which nothing is told any more, is up.
    TypeMeanwhile("-P Right -s 2500 -p Right");
    EXPECT_SOON(shell.run.game.right_held);
    BringForward("Pouch .sandbox.");
    EXPECT_SOON(!HasFocus(shell.main));
    EXPECT_SOON(!shell.run.game.right_held);
    EXPECT_FALSE(shell.run.game.paused);
    BringForward(kMainTitle);
    EXPECT_SOON(HasFocus(shell.main));
    Type("-k p");
    EXPECT_SOON(shell.run.game.paused);
    EXPECT_EQ(Text(1007), "Paused.");
    RunFor(100);
    Screenshot("wayland-3-paused");
    Type("-k p");
    EXPECT_SOON(!shell.run.game.paused);
    desktop.LoseTheRun([] { Type("-k space"); });
    ASSERT_EQ(shell.run.mode, kModeGameOver);

    RunFor(300);
    Screenshot("wayland-4-game-over");
    PressButton(5);  // Record score
    ASSERT_TRUE(WaitFor(
        "the board", [] { return WindowExists(shell.board); }, 60));
    EXPECT_EQ(shell.run.mode, kModeRecorded);
    EXPECT_EQ(box.BalanceOf(kArcadeWatchAddress), 1);
    ASSERT_EQ(shell.board_view.rows.size(), 1u);
    EXPECT_EQ(shell.board_view.rows[0].txid, shell.run.record_txid);
    RunFor(500);
    Screenshot("wayland-5-recorded");
    EXPECT_EQ(box.TotalFunded(), box.TotalUnspent() + box.TotalFees());
}

}  // namespace
}  // namespace brickfall
