// desktop_robot.h - a person at the desktop: real pointer and key events into real windows, through the
// window system, while the cabinet of this process goes on running.
#pragma once

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "base/clock.h"
#include "platform/midi_out.h"
#include "platform/window.h"
#include "tests/support/child_process.h"

namespace brickfall {

constexpr char kMainTitle[] = "Brickfall";
constexpr char kCompanionTitle[] = "Pouch (sandbox)";

// Real time with jumps: the test need not play for minutes.
class JumpingClock {
  public:
    JumpingClock();
    ~JumpingClock();
    JumpingClock(const JumpingClock&) = delete;
    JumpingClock& operator=(const JumpingClock&) = delete;
    void JumpMs(int64_t milliseconds) { jumped_ms_ += milliseconds; }

  private:
    static int64_t Jumped(void* self) { return static_cast<JumpingClock*>(self)->jumped_ms_; }

    Clock clock_;
    std::atomic<int64_t> jumped_ms_ = 0;
};

// Runs the message loop until the condition holds; a failure of the test after `seconds` of real time.
bool WaitFor(std::string_view what, const std::function<bool()>& condition, int seconds = 20);
#define EXPECT_SOON(condition) EXPECT_TRUE(::brickfall::WaitFor(#condition, [&] { return condition; }))
void RunFor(int milliseconds);

// One command line, while the message loop runs. Its output without the last newline.
std::string RunShell(const std::string& command);
std::string Xdotool(const std::string& arguments);

// `title` is the window's whole title. Coordinates are client pixels.
bool WindowIsUp(const std::string& title);
std::optional<Rect> RectOnScreen(const std::string& title);  // with its frame; nothing without the window
void MoveTo(const std::string& title, Point at);
void Click(const std::string& title, Point at);
void ClickBehind(const std::string& title, Point at);  // brings the window to the front first
void ClickOn(WindowId window, int control);            // a control of this process
void PressKeys(const std::string& keys);               // such as "space" or "alt+F4"
// Presses Alt+F4 in the program's main window, and again as long as it is there: a window manager that is
// just busy with a window loses keys. The exit code; a failure of the test if it never ends.
int CloseByKeys(ChildProcess& program);
// For a modal box that is about to come: presses the keys in it while it runs its own loop.
void AnswerBox(const std::string& title, const std::string& keys);
void TypeKeys(const std::string& text);

// Keeps a picture of the desktop in the folder that BRICKFALL_SCREENSHOTS names, if any.
void Screenshot(const std::string& name);

// What the desktop itself shows at a place within a window's client.
Color ColorOnScreen(const std::string& title, Point at);

// A synthesiser that remembers the messages that it was sent.
std::unique_ptr<MidiOut> OpenRecordingMidi();
bool HeardMidiMessage(uint32_t message);

}  // namespace brickfall
