// keyboard.h - the keys that the cabinet knows, and whether one is physically down. Main thread only.
#pragma once

namespace brickfall {

enum class Key {
    kLeft,
    kRight,
    kSpace,
    kP,
    kEscape,
    kUp,
    kDown,
    kPageUp,
    kPageDown,
    kHome,
    kEnd,
    kF11,
    kReturn,
    kOther,
};

// Releases that a window system makes up for its auto-repeat are none. An X server is asked for the key
// itself, so that one held, pressed or let go while another application has the focus is seen. Other window
// systems do not tell: there every key counts as up until the focus, and an event of the key, come back.
bool KeyIsDown(Key key);

}  // namespace brickfall
