// platform_fixture.h - a window that writes down what it is told, in a process with the platform off screen.
#pragma once

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/automation.h"
#include "platform/window.h"
#include "tests/support/pixels.h"

namespace brickfall {

using Notes = std::vector<std::string>;

// Paints and styles are answered without a note.
struct NotedWindow {
    explicit NotedWindow(WindowOptions options = {.title = "Noted", .size = {400, 300}});
    ~NotedWindow();
    NotedWindow(const NotedWindow&) = delete;
    NotedWindow& operator=(const NotedWindow&) = delete;

    // The notes since the last call.
    Notes Take() { return std::exchange(notes, {}); }
    Notes TakePumped() {
        PumpMessages();
        return Take();
    }
    auto Times(const std::string& note) const { return std::count(notes.begin(), notes.end(), note); }
    void TapKey(Key key) const {
        PressKey(id, key);
        ReleaseKey(id, key);
    }

    WindowId id = 0;
    Notes notes;
    std::function<bool(Message&)> handle;  // asked first
    ButtonState button;                    // as last painted
    int painted_disabled = 0;              // the last button that was
    TextStyle style = {Rgb(0xDCF0E4), Rgb(0x102030), false};

  private:
    bool OnMessage(Message& message);
};

}  // namespace brickfall
