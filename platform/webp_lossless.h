// webp_lossless.h - how many prefix code groups a lossless WebP stream (RFC 9649, section 3) may use. Pure.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace brickfall {

// `stream` begins at the transforms, behind the image header if there is one. The number of entries of the
// entropy image, 1 without one: a decoder makes tables of 5 to 12 kB for each different group that they name.
// Nothing for a stream that is damaged before that.
std::optional<int64_t> EntropyImageEntries(std::string_view stream, int w, int h);

}  // namespace brickfall
