// keyboard.h - the keys that the cabinet knows, and whether one is physically down. Main thread only.
#pragma once

namespace brickfall {

enum class Key { kLeft, kRight, kSpace, kP, kEscape, kOther };

// Releases that a window system makes up for its auto-repeat are none. While another application has the
// focus every key counts as up.
bool KeyIsDown(Key key);

}  // namespace brickfall
