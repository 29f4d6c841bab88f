// page_face.h - a player's picture as a page shows it: read within the platform's bounds, and made anew, so
// that no byte of a stranger's file gets into a page. Not in a build without windows, which has no decoder.
// Any thread.
#pragma once

#include <optional>
#include <string>

#include "base/image.h"

namespace brickfall {

inline constexpr int kPageFaceSide = 48;  // half again as large as it is shown

// The picture in a file from anywhere, neither side above `max_side` or kPageFaceSide; nothing for what is
// none.
std::optional<Image> ReadPageFace(std::string file, int max_side);

// As a JPEG file of some two kilobytes, where it is transparent on the disc of those who have no picture.
std::string PageFaceFile(const Image& face);

}  // namespace brickfall
