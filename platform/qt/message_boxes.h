// message_boxes.h - message boxes on show, and who answers them in a test. Main thread only.
#pragma once

namespace brickfall {

class WindowWidget;

// As refused: those of an owner, or all.
void CloseMessageBoxes(const WindowWidget* owner = nullptr);

}  // namespace brickfall
