#include "tests/e2e/desktop_robot.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <set>
#include <thread>
#include <utility>

#include "base/workers.h"
#include "platform/automation.h"

namespace brickfall {
namespace {

std::mutex& midi_mutex = *new std::mutex;
std::set<uint32_t>& midi_messages = *new std::set<uint32_t>;  // guarded by midi_mutex

class RecordingMidi : public MidiOut {
  public:
    void ShortMessage(uint32_t message) override {
        const std::lock_guard lock(midi_mutex);
        midi_messages.insert(message);
    }
    void Reset() override {}
};

void Pause(int milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }

std::string SearchFor(const std::string& title) {
    std::string pattern = title;
    std::ranges::replace_if(
        pattern, [](char c) { return c == '(' || c == ')'; }, '.');
    return "search --onlyvisible --name '^" + pattern + "$'";
}

std::string WindowOfTitle(const std::string& title) {
    const std::string ids = Xdotool(SearchFor(title));
    return ids.substr(ids.rfind('\n') + 1);
}

}  // namespace

JumpingClock::JumpingClock() : clock_(SystemClock()) {
    clock_.self = this;
    clock_.monotonic_ns = [](void* self) {
        return SystemClock().monotonic_ns(nullptr) + Jumped(self) * 1'000'000;
    };
    clock_.tick_ms = [](void* self) {
        return SystemClock().tick_ms(nullptr) + static_cast<uint64_t>(Jumped(self));
    };
    InstallClock(&clock_);
}

JumpingClock::~JumpingClock() { InstallClock(nullptr); }

bool WaitFor(std::string_view what, const std::function<bool()>& condition, int seconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    do {
        PumpMessages();
        if (condition()) return true;
        Pause(5);
    } while (std::chrono::steady_clock::now() < end);
    Screenshot("failed");
    ADD_FAILURE() << "waited in vain: " << what;
    return false;
}

void RunFor(int milliseconds) {
    for (int passed = 0; passed < milliseconds; passed += 5) {
        PumpMessages();
        Pause(5);
    }
}

std::string RunShell(const std::string& command) {
    // In a thread of its own, since xdotool waits for what the windows answer.
    std::string output;
    std::atomic<bool> done = false;
    std::thread runner([&] {
        ChildProcess shell("/bin/sh", {"-c", command});
        while (const std::optional<std::string> line = shell.ReadLine())
            output += (output.empty() ? "" : "\n") + *line;
        shell.Wait();
        done = true;
    });
    while (!done) RunFor(5);
    runner.join();
    RunFor(30);
    return output;
}

std::string Xdotool(const std::string& arguments) { return RunShell("timeout 20 xdotool " + arguments); }

std::optional<Rect> RectOnScreen(const std::string& title) {
    const std::string window = WindowOfTitle(title);
    if (window.empty()) return std::nullopt;
    const std::string told =
        RunShell("xwininfo -id " + window +
                 " | sed -n 's/.*\\(Absolute upper-left [XY]\\|Width\\|Height\\): *//p' | tr '\\n' ' '; "
                 "xprop -id " +
                 window + " _NET_FRAME_EXTENTS | tr -d ,");
    int x = 0, y = 0, w = 0, h = 0, left = 0, right = 0, top = 0, bottom = 0;
    if (std::sscanf(told.c_str(), "%d %d %d %d _NET_FRAME_EXTENTS(CARDINAL) = %d %d %d %d", &x, &y, &w, &h,
                    &left, &right, &top, &bottom) != 8) {
        return std::nullopt;
    }
    return FromEdges(x - left, y - top, x + w + right, y + h + bottom);
}

bool WindowIsUp(const std::string& title) { return !WindowOfTitle(title).empty(); }

void MoveTo(const std::string& title, Point at) {
    const std::string window = WindowOfTitle(title);
    ASSERT_NE(window, "") << "no window " << title;
    Xdotool("mousemove --window " + window + " " + std::to_string(at.x) + " " + std::to_string(at.y));
}

void Click(const std::string& title, Point at) {
    MoveTo(title, at);
    Xdotool("click 1");
}

void ClickBehind(const std::string& title, Point at) {
    Xdotool("windowactivate --sync " + WindowOfTitle(title));
    Click(title, at);
}

void ClickOn(WindowId window, int control) {
    const Rect rect = ControlRect(window, control);
    Click(WindowTitle(window), {rect.x + rect.w / 2, rect.y + rect.h / 2});
}

void PressKeys(const std::string& keys) { Xdotool("key " + keys); }

int CloseByKeys(ChildProcess& program) {
    constexpr int kTries = 5, kTryMs = 4'000, kLookMs = 20;
    for (int i = 0; i < kTries && !program.HasEnded(); ++i) {
        Xdotool(SearchFor(kMainTitle) + " windowactivate --sync key alt+F4");
        for (int ms = 0; ms < kTryMs && !program.HasEnded(); ms += kLookMs) RunFor(kLookMs);
    }
    if (!program.HasEnded()) {
        Screenshot("failed");
        ADD_FAILURE() << "the program does not close";
        program.Signal(SIGKILL);
    }
    return program.Wait();
}

void AnswerBox(const std::string& title, const std::string& keys) {
    const auto windows = [search = SearchFor(title)] {
        ChildProcess shell("/bin/sh", {"-c", "xdotool " + search});
        int count = 0;
        while (shell.ReadLine()) ++count;
        return count;
    };
    StartWorker([keys, windows, before = windows()] {
        for (int look = 0; look < 200 && windows() <= before; ++look) Pause(100);
        Pause(500);  // until it has the focus
        ChildProcess("/bin/sh", {"-c", "xdotool key " + keys}).Wait();
    });
}

void TypeKeys(const std::string& text) { Xdotool("type --delay 5 '" + text + "'"); }

void Screenshot(const std::string& name) {
    const char* const folder = std::getenv("BRICKFALL_SCREENSHOTS");
    if (folder == nullptr) return;
    const std::string path = std::string(folder) + "/" + name + ".png";
    if (std::getenv("WAYLAND_DISPLAY") != nullptr) {
        RunShell("grim '" + path + "'");  // the desktop shows its screen to nobody else
    } else {
        SavePng(GrabScreen(), path);
    }
}

Color ColorOnScreen(const std::string& title, Point at) {
    int x = 0;
    int y = 0;
    const std::string geometry = Xdotool("getwindowgeometry " + WindowOfTitle(title));
    const std::size_t position = geometry.find("Position: ");
    if (position == std::string::npos ||
        std::sscanf(geometry.c_str() + position, "Position: %d,%d", &x, &y) != 2) {
        ADD_FAILURE() << "no window " << title;
        return {};
    }
    const Image screen = GrabScreen();
    return Rgb(screen.pixels.at(static_cast<std::size_t>(y + at.y) * static_cast<std::size_t>(screen.w) +
                                static_cast<std::size_t>(x + at.x)));
}

std::unique_ptr<MidiOut> OpenRecordingMidi() { return std::make_unique<RecordingMidi>(); }

bool HeardMidiMessage(uint32_t message) {
    const std::lock_guard lock(midi_mutex);
    return midi_messages.contains(message);
}

}  // namespace brickfall
