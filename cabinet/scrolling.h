// scrolling.h - a part of a page that is higher than the room for it: where it stands, what moves it, and how
// it shows that there is more. Main thread only.
#pragma once

#include <algorithm>
#include <functional>

#include "platform/window.h"

namespace brickfall {

struct Scrolling {
    int content = 0;  // the height of all of it
    int room = 0;     // of what can be seen
    int step = 0;     // of an arrow key
    int offset = 0;   // of what is hidden above

    int HiddenBelow() const { return std::max(0, content - room - offset); }
    void To(int place) { offset = std::clamp(place, 0, std::max(0, content - room)); }
};

// Wheel, touchpad, arrows, Page keys, Home and End. True when the message was one of these.
bool OnScrollMessage(WindowId window, const Message& message, Scrolling& scrolling);

// Clips what `body` draws to `room`, and lets it fade into `ground` at an edge behind which there is more:
// the further, the more there is.
void DrawScrolled(Canvas& canvas, const Rect& room, const Scrolling& scrolling, Color ground,
                  const std::function<void()>& body);

}  // namespace brickfall
