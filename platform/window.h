// window.h - windows, their messages and their controls, as the cabinet needs them.
//
// A window is a WindowId and a procedure that gets its messages. Ids are never used twice, so whatever is
// done with the id of a window that is gone does nothing. A control is named by its window and its number.
// Everything runs on the main thread but PostWindowMessage and WindowExists.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/canvas.h"
#include "platform/geometry.h"
#include "platform/image.h"
#include "platform/keyboard.h"

namespace brickfall {

using WindowId = uint32_t;  // 0: no window

// The data of a posted message; freed with the message when nobody takes it.
class Payload {
  public:
    virtual ~Payload() = default;
};

template <typename T>
class PayloadOf : public Payload {
  public:
    explicit PayloadOf(T held) : value(std::move(held)) {}
    T value;
};

template <typename T>
std::unique_ptr<Payload> MakePayload(T value) {
    return std::make_unique<PayloadOf<T>>(std::move(value));
}

// What a payload of this type holds; a default value when there is none or one of another type.
template <typename T>
T TakePayload(const std::unique_ptr<Payload>& payload) {
    auto* const held = dynamic_cast<PayloadOf<T>*>(payload.get());
    return held != nullptr ? std::move(held->value) : T();
}

enum class MessageType {
    kCreate,     // the window exists; it is not shown yet
    kDestroy,    // it is about to be gone; its controls still stand
    kClose,      // its frame's close button or, in a tool window, Escape; unhandled: the window is destroyed
    kSize,       // its client size has changed: `size`
    kMoveEnd,    // the user has moved or sized it and let go
    kPaint,      // draw the whole client area on `canvas`, of `size`; what is drawn appears at once
    kKeyDown,    // `key`, `is_repeat`; also keys that the focused control has no use for
    kKeyUp,      // `key`
    kTimer,      // `id` of the timer
    kClick,      // the pointer was pressed and let go on the window itself: `at`
    kCommand,    // button or clickable text `id` was clicked
    kWheel,      // wheel or touchpad over the window: `value` pixels, downwards positive
    kScroll,     // track bar `id` was moved to `value`
    kPosted,     // `id` is the message's number, with `value` and `payload`
    kTextStyle,  // give `style` for text control `id`; asked at each of its paints
    kPaintButton,  // draw button `id` on `canvas`, of `size`, in the state `button`
};

inline constexpr int kWheelNotch = 54;  // pixels of one of a wheel's clicks

struct ButtonState {
    bool hot = false;  // the pointer is on it, or it is being pressed
    bool pressed = false;
    bool disabled = false;
    bool focused = false;  // by the keyboard
};

struct TextStyle {
    Color text;
    Color background;
    bool hand = false;  // the pointer over it is the hand
};

struct Message {
    MessageType type;
    int id = 0;
    int64_t value = 0;
    Size size = {};
    Point at = {};
    Key key = Key::kOther;
    bool is_repeat = false;
    Canvas* canvas = nullptr;
    ButtonState button = {};
    TextStyle style = {};
    std::unique_ptr<Payload> payload = nullptr;
};

// True when it has handled the message.
using WindowProcedure = std::function<bool(WindowId window, Message& message)>;

// Once in main, before everything else here; ends the toolkit with its scope.
class Platform {
  public:
    Platform(int& argument_count, char** arguments);
    ~Platform();
    Platform(const Platform&) = delete;
    Platform& operator=(const Platform&) = delete;
};

int RunMessageLoop();  // until QuitMessageLoop; gives its code
void QuitMessageLoop(int code);

// Queued, from any thread. False when the window is gone, and the payload is freed. A message whose window
// goes before its turn is dropped with its payload.
bool PostWindowMessage(WindowId window, int number, int64_t value = 0,
                       std::unique_ptr<Payload> payload = nullptr);
bool WindowExists(WindowId window);

// ---- Windows. Sizes and positions of top-level windows include their frames, unless told otherwise.

struct WindowOptions {
    std::string title = {};
    Size size = {};
    bool size_is_client = false;
    bool resizable = true;  // false: caption and system menu only, and Escape closes it
    WindowId owner = 0;     // stays above its owner and goes with it
    Color background = {};
};

WindowId OpenWindow(const WindowOptions& options, WindowProcedure procedure);  // 0 when it cannot be made
WindowId OpenChild(WindowId parent, const Rect& rect, Color background, WindowProcedure procedure);
void DestroyWindow(WindowId window);

enum class ShowState { kNormal, kMaximized, kMinimized };
void ShowWindow(WindowId window, ShowState state = ShowState::kNormal, bool full_screen = false);
void BringToFront(WindowId window);  // restored if minimised, shown, above the others and active
bool IsMaximized(WindowId window);   // on the full screen: whether it was before
bool IsMinimized(WindowId window);
void SetFullScreen(WindowId window, bool on);  // of a shown one; off: maximised or normal, as before
bool IsFullScreen(WindowId window);

Rect WindowRect(WindowId window);
Rect NormalRect(WindowId window);  // as it would stand when restored
Size FrameSize(WindowId window);   // what the frame adds to both sides of the client; 0 while not known
Size ClientSize(WindowId window);
void MoveWindow(WindowId window, Point at);  // neither shown nor activated
void ResizeWindow(WindowId window, Size size);
void MoveChild(WindowId child, const Rect& rect);
// The greater of both on each axis: of the client, and of the window with its frame. It gives way where the
// work area is smaller, so that every edge stays in reach.
void SetMinimumSize(WindowId window, Size client, Size outer);
void SetTitleBarColors(WindowId window, Color caption, Color border, Color text);  // where the desktop can
// The sizes of one icon; empty ones are left out. A window without its own shows its owner's.
void SetWindowIcons(WindowId window, std::span<const Image> sizes);
void SetAccessibleWindowName(WindowId window, std::string_view name, std::string_view description = {});

void InvalidateWindow(WindowId window);  // a repaint with the next turn of the loop

void StartTimer(WindowId window, int timer, int milliseconds);  // periodic and precise; anew replaces
void StopTimer(WindowId window, int timer);

// Whether the keyboard focus is on the window itself, not on a control of it.
bool HasFocus(WindowId window);
// Moves the focus of this program. Never takes the desktop's focus from another program, nor from a message
// box.
void FocusWindow(WindowId window);

std::vector<Monitor> Monitors();
Monitor MonitorOf(WindowId window);  // the nearest

// ---- Controls. Rectangles are in client pixels. Tab moves the focus in the order of creation.

// A text that its rectangle cuts is whole in its tooltip.
void CreateText(WindowId window, int id, const Rect& rect, std::string_view text, const Font& font,
                bool clickable = false);
// The procedure paints it. A press captures the pointer, and only a release inside is a click. Return and
// blank press the focused one. A click with the pointer does not take the focus.
void CreateButton(WindowId window, int id, const Rect& rect, std::string_view text, const Font& font);
// Several lines; Return is a line. `limit` is in UTF-16 units.
void CreateEdit(WindowId window, int id, const Rect& rect, const Font& font, int limit, Color text,
                Color background);
// One line of text; Return is the window's.
void CreateField(WindowId window, int id, const Rect& rect, const Font& font, int limit, Color text,
                 Color background);
void SetCaretBlinking(bool on);  // of all edits
void CreateTrackBar(WindowId window, int id, const Rect& rect, int lowest, int highest, int position);
// One that goes to where it is clicked, and takes the keyboard by Tab alone.
void CreateSeekBar(WindowId window, int id, const Rect& rect, int highest);
// Moves a bar of either kind without a kScroll.
void SetTrackBar(WindowId window, int id, int position);

void RemoveControl(WindowId window, int id);
void MoveControl(WindowId window, int id, const Rect& rect);
void SetControlText(WindowId window, int id, std::string_view text);  // UTF-8
std::string ControlText(WindowId window, int id);
void EnableWindowControl(WindowId window, int id, bool on);
void SetTextClickable(WindowId window, int id, bool on);  // else it is no link, and Tab passes it by
// A screen reader speaks each change of the text, wherever the keyboard is.
void SetTextSpoken(WindowId window, int id);
void FocusControl(WindowId window, int id);
// All of them at once: places and sizes times `factor`.
void ScaleControls(WindowId window, double factor);
void InvalidateControl(WindowId window, int id);
void SetAccessibleControlName(WindowId window, int id, std::string_view name);
void SetAccessibleControlDescription(WindowId window, int id, std::string_view description);
// Shown while the pointer rests on it; a screen reader's description too.
void SetControlTip(WindowId window, int id, std::string_view tip);

// ---- Waiting: around work that keeps the main thread from its messages.

// At once, on the screen too: the control shows itself disabled, the texts and buttons are as they were last
// set, and the pointer is the waiting one.
void BeginWait(WindowId window, int control);
// All as before, the keyboard's place included. What was clicked or typed meanwhile reaches nobody, nor does
// a click that had not been told yet.
void EndWait();

// ---- Message boxes: modal; the program's timers and messages go on meanwhile.

enum class BoxButtons { kOk, kOkCancel, kYesNo };
enum class BoxIcon { kNone, kInformation, kQuestion, kWarning };

// How boxes look; those of a program that says nothing are the toolkit's.
struct BoxLook {
    Font font;  // of the text, and of tooltips
    Color text;
    Color background;
    Size button;
    Size icon;
    std::function<void(Canvas& canvas, std::string_view caption, const ButtonState& state)> paint_button;
    std::function<void(Canvas& canvas, BoxIcon icon)> paint_icon;
};
void SetMessageBoxLook(BoxLook look);

// True for OK or Yes.
bool ShowMessageBox(WindowId owner, std::string_view title, std::string_view text, BoxButtons buttons,
                    BoxIcon icon);

}  // namespace brickfall
