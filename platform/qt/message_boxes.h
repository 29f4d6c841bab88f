// message_boxes.h - message boxes on show, and who answers them in a test. Main thread only.
#pragma once

#include <functional>
#include <string_view>

namespace brickfall {

class WindowWidget;

void CloseMessageBoxes(const WindowWidget* owner);  // as refused

}  // namespace brickfall
