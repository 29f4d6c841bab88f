// shell.h - the main window: its tool windows and the messages that the workers bring. Main thread only.
#pragma once

#include "platform/window.h"

namespace brickfall {

inline constexpr char kShellWindowClass[] = "OrvaneBrickfallShell";

// Makes the main window with everything in it and starts the first background work. 0 when it cannot be made.
WindowId OpenMainWindow();

bool MainWindowProc(WindowId window, Message& message);

}  // namespace brickfall
