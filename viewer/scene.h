// scene.h - one moment of a recorded run as a picture: the well as the cabinet paints it, and over it what a
// viewer has to say. Main thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "cabinet/well.h"
#include "viewer/course.h"

namespace brickfall {

// What is pressed, and where on the tape this is.
struct ShownInputs {
    uint64_t tick_ms = 0;
    std::size_t events = 0;  // taken by now
    std::size_t of_events = 0;
    bool serves = false;  // within the last moment
    std::string last;     // the last event in words
};

struct Scene {
    WellState well;
    std::optional<GameState> ghost;     // of a second run
    std::optional<ShownInputs> inputs;  // on demand
    std::string_view headline;          // over the field, where the run cannot go on
    std::string_view reason;            // under it
};

// The course at this tick. The texts belong to the course.
Scene SceneAt(Course& course, uint64_t tick_ms, bool with_inputs = false);

// In the whole canvas, with the cells that fit it, as the cabinet's well of that size has them. `blink_ms`
// makes the banner blink.
void PaintScene(Canvas& canvas, Scene scene, uint64_t blink_ms);

// For a screen reader.
std::string SpokenScene(const Scene& scene);

// "1:02:03", "2:03"; with `tenths`, "2:03.4".
std::string PlayedText(uint64_t milliseconds, bool tenths = false);

}  // namespace brickfall
