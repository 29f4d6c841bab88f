// well.h - the child window in which the game is shown: one whole frame from the run's state, each time.
// Main thread only.
#pragma once

#include <cstdint>
#include <string>

#include "game/run_control.h"
#include "platform/window.h"

namespace brickfall {

// The field's top left corner inside the well.
inline constexpr int kFieldLeft = 18;
inline constexpr int kFieldTop = 14;

// `layout` is the cell size that the present layout would give a new run; `tick_ms` makes the banner blink.
void PaintWell(Canvas& canvas, const RunControl& run, CellSize layout, uint64_t tick_ms);

// What the picture says, for a screen reader; it changes only with what a player wants to hear of.
std::string SpokenWell(const RunControl& run);

}  // namespace brickfall
