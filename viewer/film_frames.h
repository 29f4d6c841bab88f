// film_frames.h - the pictures of a film, 60 a second: each the same for the same run, on every machine with
// the same fonts. Main thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "base/image.h"
#include "platform/geometry.h"
#include "viewer/viewer_state.h"

namespace brickfall {

inline constexpr uint64_t kFramesASecond = 60;
inline constexpr uint64_t kFilmTailMs = 3'000;  // the last picture stays

struct FilmCut {
    Size size;
    uint64_t from_ms = 0;
    uint64_t for_ms = 0;  // 0: to the end of the run, and kFilmTailMs more
    bool inputs = false;
};

class FilmFrames {
  public:
    // Both runs must outlive it.
    FilmFrames(OpenRun& run, OpenRun* ghost, const FilmCut& cut);

    Size PictureSize() const { return cut_.size; }
    std::size_t Count() const { return count_; }
    uint64_t LengthMs() const { return length_ms_; }
    // When in the film the last ball is lost; beyond the length where that is not shown.
    uint64_t LostAtMs() const;

    // Stands until the next call.
    const Image& Paint(std::size_t frame);

    // Some of the pixels as a film holds them: planes of luma and of both colours at half the size, BT.709 in
    // the narrow range. Stands until the next call.
    const std::vector<uint8_t>& PaintYuv(std::size_t frame);

  private:
    void PaintWhole(Canvas& canvas, uint64_t run_ms, uint64_t film_ms);

    OpenRun& run_;
    OpenRun* ghost_;
    FilmCut cut_;
    uint64_t length_ms_ = 0;
    std::size_t count_ = 0;
    Image picture_;
    Image former_;  // as `yuv_` has it; rows that are the same are not converted again
    std::vector<uint8_t> yuv_;
};

}  // namespace brickfall
