// board_window.h - the weekly board: one finished load, with its best score on top. Main thread only.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "board/watch_reader.h"
#include "cabinet/scrolling.h"
#include "platform/window.h"

namespace brickfall {

inline constexpr Size kBoardWindowSize = {540, 878};

// What the last load brought.
struct BoardView {
    std::vector<ScoreRow> rows;
    ScoreRow best;
    bool has_best = false;
    std::string week_label;
    std::string message;  // empty when there are rows
    std::string my_key;   // the player's own face key, or empty
};

// Opens a window that shows `view` as it is at each paint; the caller keeps it and closes the one before.
WindowId OpenBoardWindow(WindowId owner, const BoardView& view);

// Where the rows scroll when the window is lower by `missing` pixels: at first, so that the player's own is
// in the middle.
Scrolling ScrollBoard(const BoardView& view, int missing = 0);

void PaintBoard(Canvas& canvas, const BoardView& view, const Scrolling& scrolling);

// Brings `key` to the face key of the connected wallet; empty without one.
void UpdateMyFaceKey(std::string& key);

}  // namespace brickfall
