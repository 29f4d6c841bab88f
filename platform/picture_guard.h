// picture_guard.h - what of a picture file from a stranger a decoder gets to see. Reads structure and counts
// what decoding would cost; makes no pixels, knows no toolkit. Pure; any thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace brickfall {

inline constexpr std::size_t kMaxPictureFile = 16 << 20;
inline constexpr int kMaxPictureSide = 4'096;  // claimed by the file
inline constexpr int kMaxJpegScans = 64;

enum class PictureFormat { kPng, kJpeg, kGif, kBmp, kWebp };

struct StillPicture {
    PictureFormat format = PictureFormat::kPng;
    int w = 0;
    int h = 0;
};

// Cuts `file` down, in its own memory, to what one still picture needs: no text, no profile, no thumbnail, no
// second frame, nothing behind the end. Nothing, and `file` of no more use, for bytes that are no PNG, JPEG,
// GIF, BMP or WebP file, for a file or a side above its limit, for more than 64 scans, and for a picture that
// decoders would pay more for than its pixels are worth: where a compressed stream gives more than the
// picture holds, where tables are sent over and over, where scans go over too many coefficients, and where
// the pixels would not fit into 100 MB beside what the decoder holds for each of them. A file that has been
// cut down passes again, unchanged.
std::optional<StillPicture> KeepStillPicture(std::string& file);

}  // namespace brickfall
