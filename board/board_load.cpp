#include "board/board_load.h"

#include <exception>
#include <utility>

namespace brickfall {
namespace {

// A service can send more than the memory holds. Then this step gives nothing, and the load goes on.
template <typename Step>
void RunStep(Step step) {
    try {
        step();
    } catch (const std::exception&) {
    }
}

}  // namespace

void BoardWorker(const BoardSnapshot& snapshot, const FaceDecoder& decode,
                 const std::function<void(std::unique_ptr<BoardResult>)>& post) {
    auto result = std::make_unique<BoardResult>();
    BoardResult& board = *result;
    RunStep([&] { ReadChainBoard(board.rows, board.best, board.has_best, board.week_label, board.message); });
    RunStep([&] { MergeWeek(snapshot, board.rows); });
    RunStep([&] { MergeBest(snapshot, board.best, board.has_best); });
    RunStep([&] {
        std::vector<ScoreRow> shown = board.rows;
        if (board.has_best) shown.push_back(board.best);
        LoadFaces(shown, decode, board.faces);
    });
    post(std::move(result));
}

}  // namespace brickfall
