// platform_fixture.h - a window that writes down what it is told, in a process with the platform off screen.
#pragma once

#include <algorithm>
#include <atomic>
#include <functional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "platform/automation.h"
#include "platform/window.h"

namespace brickfall {

std::string Describe(const Message& message);  // one word for the type, and what belongs to it

// Paints and styles are answered without a note.
struct NotedWindow {
    explicit NotedWindow(WindowOptions options = {.title = "Noted", .size = {400, 300}}, bool show = true);
    ~NotedWindow();
    NotedWindow(const NotedWindow&) = delete;
    NotedWindow& operator=(const NotedWindow&) = delete;

    // The notes since the last call.
    std::vector<std::string> Take() { return std::exchange(notes, {}); }
    bool Noted(const std::string& note) const {
        return std::find(notes.begin(), notes.end(), note) != notes.end();
    }

    WindowId id = 0;
    std::vector<std::string> notes;
    std::function<bool(Message&)> handle;  // asked first
    ButtonState button;                    // as last painted
    int painted_disabled = 0;              // the last button that was
    TextStyle style = {Rgb(0xDCF0E4), Rgb(0x102030), false};

  private:
    bool OnMessage(Message& message);
};

using Notes = std::vector<std::string>;

// A payload that counts how many of its kind there are.
struct Counted : Payload {
    explicit Counted(std::atomic<int>& alive_in) : alive(alive_in) { ++alive; }
    ~Counted() override { --alive; }
    std::atomic<int>& alive;
};

Color PixelOf(const Image& image, int x, int y);
// How many pixels of a rectangle are not the background.
int Inked(const Image& image, const Rect& rect, Color background);
void PrintTo(const Color& color, std::ostream* out);
void PrintTo(const Size& size, std::ostream* out);
void PrintTo(const Rect& rect, std::ostream* out);

}  // namespace brickfall
