// x11.h - what an X server tells and is asked beside the toolkit's own events. On another window system
// nothing is known, and nothing happens. Main thread only.
#pragma once

#include <QtGlobal>
#include <functional>
#include <optional>

namespace brickfall {

// Between the making and the end of the application. `framed` is called soon after a window manager has said
// how large the frame of one of our windows is.
void StartX11Watch(std::function<void(quint32 window)> framed);
void StopX11Watch();

// Whether the server sees the key down at this moment.
std::optional<bool> KeyDownOnServer(quint32 key_code);

// The letter, 'A' to 'Z', that the key has in one of the keyboard's layouts, whichever is in use; 0 for none.
char LatinLetterOfKey(quint32 key_code);

void FlushToServer();

// Calls back when every event that has happened until now has been delivered. `window` is one of ours.
// Without a server that is with the next turn of the loop, on Wayland a moment later.
void AfterEventsUntilNow(quint32 window, std::function<void()> done);

}  // namespace brickfall
