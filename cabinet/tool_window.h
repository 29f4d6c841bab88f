// tool_window.h - what the cabinet's small windows have in common: their frame, their colours, their icons
// and their buttons. Main thread only.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "platform/window.h"

namespace brickfall {

struct ToolWindowOptions {
    std::string title;
    Size size;
    bool size_is_client = false;
    std::string spoken = {};  // what is painted, for a screen reader
    // Where the screen is too low the window is lower by kCreate's `value`, instead of smaller as a whole.
    bool scrolls = false;
};

// The procedure need not care for the look of buttons and texts, nor for a screen that is smaller than the
// window. The window is not shown yet.
WindowId OpenToolWindow(WindowId owner, const ToolWindowOptions& options, WindowProcedure procedure);

// Lines for a screen reader, one after the other.
std::string Spoken(std::span<const std::string_view> lines);

// The look that every window of the cabinet has.
void DressWindow(WindowId window);

}  // namespace brickfall
