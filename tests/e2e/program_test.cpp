// The program itself: its single instance, and its end while work is in flight.
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "base/clock.h"
#include "base/files.h"
#include "base/workers.h"
#include "deployment/deployment.h"
#include "platform/automation.h"
#include "platform/desktop.h"
#include "tests/e2e/desktop_robot.h"
#include "tests/support/child_process.h"
#include "tests/support/wallet_fixture.h"

namespace brickfall {
namespace {

constexpr char kProgram[] = BRICKFALL_BINARY_DIR "/cabinet/brickfall";
// None of the unanswered requests would be over by then.
constexpr int kWaitsForNothingMs = 3'000;

std::string PlaceJson(const Rect& place, bool maximized) {
    return nlohmann::json{{"x", place.x}, {"y", place.y}, {"w", place.w}, {"h", place.h}, {"max", maximized}}
        .dump();
}

std::optional<Rect> SavedPlace(const std::string& file) {
    const auto saved =
        nlohmann::json::parse(ReadFile(file).value_or(""), nullptr, /*allow_exceptions=*/false);
    if (!saved.is_object()) return std::nullopt;
    return Rect{saved.value("x", -1), saved.value("y", -1), saved.value("w", -1), saved.value("h", -1)};
}

TEST(Program, RaisesTheFirstOnASecondStartAndEndsCleanWithWorkInFlight) {
    using enum sandbox::Service;
    SandboxFixture services;
    WalletFixture wallet;
    services.box.Fund(wallet.ReceiveAddress(0), 100'000);
    ::setenv("BRICKFALL_SANDBOX_CONNECT", services.box.ConnectTo().c_str(), 1);
    ::setenv("BRICKFALL_SANDBOX_CA", services.box.CaFile().c_str(), 1);
    // Pot, balance, update check and board stay in flight, and the payment that is under way.
    constexpr auto kNoAnswer = sandbox::FaultKind::kNoAnswer;
    services.Disturb(kChain, kNoAnswer, kArcadePotAddress);
    services.Disturb(kPaymail, kNoAnswer, "/quota/");
    for (const sandbox::Service service : {kDownload, kIndexer, kRelay}) services.Disturb(service, kNoAnswer);
    ChildProcess program(kProgram, {});
    ASSERT_TRUE(WaitFor("the program's window", [] { return WindowIsUp(kMainTitle); }));
    RunFor(300);

    Xdotool("search --onlyvisible --name '^Brickfall$' windowminimize --sync");
    EXPECT_SOON(!WindowIsUp(kMainTitle));
    ChildProcess second("/usr/bin/env", {"-u", "DISPLAY", "-u", "QT_QPA_PLATFORM", kProgram});
    EXPECT_EQ(second.Wait(), 0) << "which takes no display";
    EXPECT_SOON(WindowIsUp(kMainTitle));
    RunFor(300);

    const auto asked = [&services](sandbox::Service service, const char* what) {
        return WaitFor(what, [&] { return !services.box.Requests(service).empty(); });
    };
    Click(kMainTitle, {164 + 85, 157});  // the board
    ASSERT_TRUE(asked(kIndexer, "the board's request"));
    AnswerBox(kMainTitle, "Return");    // pay
    Click(kMainTitle, {428 + 75, 39});  // play
    ASSERT_TRUE(asked(kRelay, "the payment"));
    ASSERT_TRUE(asked(kDownload, "the update check"));
    const int64_t before_ms = SystemClock().unix_millis(nullptr);
    PressKeys("alt+F4");
    EXPECT_SOON(program.HasEnded());
    EXPECT_EQ(program.Wait(), 0);
    EXPECT_LT(SystemClock().unix_millis(nullptr) - before_ms, kWaitsForNothingMs);
    EXPECT_TRUE(FileExists(wallet.StorePath("/brickfall_ui.json")));
    services.box.ClearFaults();
}

TEST(Program, StartsTheCompanionThatIsNotThereAndRaisesTheOneThatIs) {
    WaitForWorkers();  // the environment changes: nobody who answers a box may start a program meanwhile
    const SandboxFixture services;
    const TempUserData data;
    ::setenv("BRICKFALL_SANDBOX_CONNECT", services.box.ConnectTo().c_str(), 1);
    ::setenv("BRICKFALL_SANDBOX_CA", services.box.CaFile().c_str(), 1);
    ChildProcess run("/bin/cat", {});  // it ends with this
    ::setenv("BRICKFALL_SANDBOX_RUN", std::to_string(run.Pid()).c_str(), 1);
    constexpr Point kConnect = {586 + 55, 39};
    // The numbers of a window's icon: of each of its pictures the width, the height and the pixels.
    constexpr int kIconNumbers = 4 * 2 + 16 * 16 + 32 * 32 + 48 * 48 + 256 * 256;
    const auto icon_numbers = [](const std::string& name) {
        return 1 +
               std::stoi(RunShell("xprop -len 1000000 -id $(xdotool search --onlyvisible --name '^" + name +
                                  "' | tail -1) -f _NET_WM_ICON 32c _NET_WM_ICON | tr -cd , | wc -c"));
    };
    for (const bool is_there : {false, true}) {
        ChildProcess program(kProgram, {});
        ASSERT_TRUE(WaitFor("the program's window", [] { return WindowIsUp(kMainTitle); }));
        EXPECT_EQ(WindowIsUp(kCompanionTitle), is_there);
        EXPECT_EQ(icon_numbers(kMainTitle), kIconNumbers);
        ClickBehind(kMainTitle, kConnect);
        ASSERT_TRUE(WaitFor("the companion in front",
                            [] { return Xdotool("getactivewindow getwindowname") == kCompanionTitle; }));
        EXPECT_EQ(icon_numbers("Pouch"), kIconNumbers);
        EXPECT_EQ(CloseByKeys(program), 0);
    }
    run.Signal(SIGKILL);
    run.Wait();
    EXPECT_SOON(!WindowIsUp(kCompanionTitle));
    ::unsetenv("BRICKFALL_SANDBOX_RUN");
}

// The place that a start of the program finds in its settings, what happens to its window, and the place that
// is there and in the settings afterwards. Twice each: what creeps a little each time is seen.
TEST(Program, ComesBackWhereItWasAndAllOfItInsideTheWorkArea) {
    const Rect left = {200, 100, 1320, 1300};
    const Rect all = {0, 0, 2200, 1500}, small = {0, 100, 1366, 728};
    const struct {
        const char* what;
        std::optional<Rect> saved;
        bool maximized;
        bool late_frame;  // the window manager comes long after the window
        Rect work;
        bool moved;  // by the player, in the first of the two
        Rect expected;
    } kCases[] = {
        {"left there", left, false, false, all, false, left},
        {"left maximised", left, true, false, all, false, left},
        {"a slow window manager", left, false, true, all, false, left},
        {"moved", left, false, false, all, true, {410, 111, 1320, 1300}},
        {"a first start on a small screen", {}, false, false, small, false, {0, 100, 1320, 728}},
        {"back on a small screen", left, false, false, small, false, {46, 100, 1320, 728}},
    };
    const TempUserData data;
    const std::string file = data.InStore("brickfall_ui.json");
    for (const auto& a_case : kCases) {
        SCOPED_TRACE(a_case.what);
        RemoveFile(file);
        if (a_case.saved) data.Put("brickfall_ui.json", PlaceJson(*a_case.saved, a_case.maximized));
        // A window that keeps the rest of the desktop for itself, as a panel does.
        const WindowId panel = OpenWindow({.title = "Panel", .size = {60, 40}}, nullptr);
        ShowWindow(panel);
        ASSERT_TRUE(WaitFor("the panel", [] { return WindowIsUp("Panel"); }));
        const auto bar = [](int width) { return "," + std::to_string(width); };
        RunShell(
            "xprop -id $(xdotool search --onlyvisible --name '^Panel$') -f _NET_WM_STRUT 32c -set "
            "_NET_WM_STRUT 0" +
            bar(all.w - a_case.work.w) + bar(a_case.work.y) + bar(all.h - a_case.work.Bottom()));
        ASSERT_TRUE(WaitFor("the work area", [&] { return MonitorOf(panel).work == a_case.work; }));
        for (int start = 0; start < 2; ++start) {
            if (a_case.late_frame) RunShell("openbox --exit");
            ChildProcess program(kProgram, {});
            ASSERT_TRUE(WaitFor("the program's window", [] { return WindowIsUp(kMainTitle); }));
            if (a_case.late_frame) RunShell("openbox >/dev/null 2>&1 &");
            const auto stands_at = [&](const Rect& rect) { return RectOnScreen(kMainTitle) == rect; };
            const bool is_moved = a_case.moved && start == 0;
            EXPECT_SOON(stands_at(a_case.maximized ? all : is_moved ? left : a_case.expected));
            if (is_moved) {
                RunFor(600);  // until it takes a move for the player's
                Xdotool("search --onlyvisible --name '^Brickfall$' windowmove --sync 411 131");
                EXPECT_SOON(stands_at(a_case.expected));
                EXPECT_SOON(SavedPlace(file) == a_case.expected);
            }
            EXPECT_EQ(CloseByKeys(program), 0);
            EXPECT_EQ(SavedPlace(file), a_case.expected);
        }
        DestroyWindow(panel);
        PumpMessages();
    }
}

TEST(Program, FillsTheScreenAtF11AndAtTheNextStartAndComesBackWhereItWas) {
    const Rect place = {200, 100, 1320, 1300}, screen = {0, 0, 2200, 1500};
    const TempUserData data;
    const std::string file = data.InStore("brickfall_ui.json");
    for (const bool maximized : {false, true}) {
        SCOPED_TRACE(maximized);
        data.Put("brickfall_ui.json", PlaceJson(place, maximized));
        const auto has = [](const std::string& text, const char* part) {
            return text.find(part) != std::string::npos;
        };
        const auto is_kept = [&] { return has(ReadFile(file).value_or(""), "full_screen"); };
        const auto is_full = [&] {
            constexpr char kState[] =
                "xprop -id $(xdotool search --onlyvisible --name '^Brickfall$') _NET_WM_STATE";
            return has(RunShell(kState), "_NET_WM_STATE_FULLSCREEN");
        };
        const auto stands_at = [&](const Rect& rect) { return RectOnScreen(kMainTitle) == rect; };
        const Rect before = maximized ? screen : place;
        for (int start = 0; start < 2; ++start) {
            ChildProcess program(kProgram, {});
            ASSERT_TRUE(WaitFor("the program's window", [] { return WindowIsUp(kMainTitle); }));
            if (start == 0) {
                EXPECT_SOON(stands_at(before));
                Xdotool("search --onlyvisible --name '^Brickfall$' windowactivate --sync key F11");
            }
            EXPECT_SOON(is_full() && stands_at(screen) && is_kept());
            if (start == 1) {
                Xdotool("search --onlyvisible --name '^Brickfall$' windowactivate --sync key F11");
                EXPECT_SOON(!is_full() && stands_at(before) && !is_kept());
            }
            EXPECT_EQ(CloseByKeys(program), 0);
            EXPECT_EQ(SavedPlace(file), place);
        }
    }
}

TEST(Program, SaysSoWithoutADisplay) {
    ChildProcess program(
        "/bin/sh", {"-c", std::string("env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM ") + kProgram +
                              " 2>&1; echo code $?"});
    EXPECT_EQ(program.ReadLine(), "brickfall: there is no display to open a window on");
    EXPECT_EQ(program.ReadLine(), "code 1");
}

}  // namespace
}  // namespace brickfall
