// well.h - the picture of a run: one whole frame from its state, each time, whether the run is being played
// or was played long ago. Main thread only.
#pragma once

#include <cstdint>
#include <string>

#include "cabinet/eye_settings.h"
#include "game/run_control.h"
#include "platform/window.h"

namespace brickfall {

// The field's top left corner inside the well.
inline constexpr int kFieldLeft = 18;
inline constexpr int kFieldTop = 14;
inline constexpr int kSmallestCell = 18;

// What it would cost to record the run, under the other amounts.
struct FeeNote {
    std::string text;    // empty while there is no run
    std::string caveat;  // goes on with the text, on a line of its own
    bool warns = false;
};

// What of a run is on show.
struct WellState {
    RunMode mode = kModeAttract;
    GameState game;
    int64_t final_score = 0;
};

WellState WellOf(const RunControl& run);

// The cells that a well of this size has room for.
CellSize FittedCell(Size well);

// Where the field lies in the well.
Rect WellField(const WellState& run, CellSize layout);

// What a newcomer is told in the first run, in the field's free places.
struct WellHints {
    bool serve = false;   // how, while the ball sits on the paddle
    bool record = false;  // how, under the banner
};

// `layout` is the cell size that the present layout would give a new run; `tick_ms` makes the banner blink.
void PaintWell(Canvas& canvas, const WellState& run, CellSize layout, uint64_t tick_ms,
               const FeeNote& fee = {}, const EyeSettings& eyes = {}, const WellHints& hints = {});

Rect BannerRect(const WellState& run, CellSize layout);  // of the lost run's banner

// Under the lines at the field's side: where the record's transaction id has its place.
Rect TxidRect(const WellState& run, CellSize layout);

// Another run's paddle and ball over the field of one that is on show, as outlines.
void PaintGhost(Canvas& canvas, const GameState& ghost, CellSize cell, Color color);

int64_t ShownScore(const WellState& run);  // as it stands, or at the run's end

// What the picture says, for a screen reader; it changes only with what a player wants to hear of.
std::string SpokenWell(const WellState& run);

}  // namespace brickfall
