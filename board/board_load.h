// board_load.h - one load of the board: the chain's rows, the local list merged over them, and the faces.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "board/faces.h"
#include "board/local_scores.h"
#include "board/watch_reader.h"

namespace brickfall {

struct BoardResult {
    std::vector<ScoreRow> rows;  // this week's board, at most kBoardRowCap rows, best first
    ScoreRow best;
    bool has_best = false;
    std::string week_label;
    std::string message;  // set before the local rows are merged; empty when the chain has rows this week
    Faces faces;
};

// Thread body: everything that the load reads of the main thread is in `snapshot`, and the result belongs to
// whoever `post` hands it to. `decode` is called on the same thread.
void BoardWorker(const BoardSnapshot& snapshot, const FaceDecoder& decode,
                 const std::function<void(std::unique_ptr<BoardResult>)>& post);

}  // namespace brickfall
