// focus.h - the active window worked without a keyboard or a pointer. Main thread only. All of it does
// nothing while another program has the desktop's focus.
#pragma once

#include <optional>

#include "platform/window.h"

namespace brickfall {

// 0: a message box. Nothing while another program has the desktop's focus.
std::optional<WindowId> ActiveWindow();

enum class Direction { kLeft, kRight, kUp, kDown };

// To the nearest control that way, in a window or a message box; to the first where none has the focus yet. A
// focused track bar takes left and right for itself, and where there is no control that way, the window gets
// the arrow key.
void MoveFocus(Direction direction);
void PressFocused();  // as the blank key does; not in an edit
void CloseActive();   // as Escape does: a tool window closes, a message box is refused

}  // namespace brickfall
