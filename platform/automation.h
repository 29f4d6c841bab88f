// automation.h - what tests and tools do to windows in a person's place. Main thread only.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/window.h"

namespace brickfall {

void PumpMessages();  // everything that is due now: posted messages, paints, due timers

void WaitMessage();  // sleeps until something is due, then handles it

void FireTimer(WindowId window, int timer);  // as if it were due; nothing when it is not running
bool TimerRunning(WindowId window, int timer);

// Through the window system's event path.
void PressKey(WindowId window, Key key, bool is_repeat = false);
void ReleaseKey(WindowId window, Key key, bool made_up_by_repeat = false);
void PressTab(bool backwards = false);
void TypeText(std::string_view text);   // into the control with the focus
void PasteText(std::string_view text);  // the same, by the clipboard
void StrokeKey(Key key);                // the same, pressed and let go; in a message box too
void PressControl(char letter);         // the same, with the control key held: undo is 'Z'
void MovePointer(WindowId window, Point at);
void PressPointer(WindowId window, Point at);
void ReleasePointer(WindowId window, Point at);
// Away from the person is positive. A touchpad tells of pixels, and a wheel does not.
void TurnWheel(WindowId window, double notches, int pixels = 0);
void ClickControl(WindowId window, int id);
bool PointerWaits();                 // it shows that the program is at work
void PretendFocusLost(bool lost);    // another application takes or gives back the focus
bool CloseByFrame(WindowId window);  // the frame's close button

// What is on show.
Image GrabWindow(WindowId window);
Image GrabMessageBox();  // the one on show; empty: there is none
Image GrabScreen();      // the whole desktop, other programs' windows included
Rect ControlRect(WindowId window, int id);
bool ControlEnabled(WindowId window, int id);
bool ControlExists(WindowId window, int id);
int FocusedControl(WindowId window);  // 0: none
std::string AccessibleName(WindowId window, int id);
std::string AccessibleRole(WindowId window, int id);  // "link", "text", "button", "notification", or empty
std::string AccessibleDescription(WindowId window, int id = 0);  // 0: of the window itself
std::vector<std::string> TakeSpoken();         // by a screen reader; collected from the first call on
std::string ToolTip(WindowId window, int id);  // as plain text
std::string WindowTitle(WindowId window);
Rect ChildRect(WindowId child);
Size MinimumClientSize(WindowId window);

// The next message boxes are answered by this instead of being shown; empty: shown again.
void AnswerMessageBoxes(std::function<bool(std::string_view title, std::string_view text)> answer);

// Addresses that OpenAddress was asked for are collected instead of opened, from the first call on.
std::vector<std::string> TakeOpenedAddresses();

// Monitors that Monitors and MonitorOf pretend to have; empty: the real ones.
void PretendMonitors(std::vector<Monitor> monitors);

}  // namespace brickfall
