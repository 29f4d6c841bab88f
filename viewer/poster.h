// poster.h - one picture of a run for sharing: whose it is, its moments, and its transaction to be found by.
// Main thread only.
#pragma once

#include "base/image.h"
#include "viewer/viewer_state.h"

namespace brickfall {

inline constexpr Size kPosterSize = {1'200, 630};

Image DrawPoster(OpenRun& run);

}  // namespace brickfall
