// Any bytes as a picture: nothing, or a still one within its limits, which is cut down to itself.
#include <algorithm>

#include "fuzz/support.h"
#include "platform/image.h"
#include "platform/picture_guard.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    using namespace brickfall;
    const CostBound cost(350'000, size, 50);  // beside what the decoders ask of malloc
    constexpr int kSide = 16;
    const std::string file(AsText(data, size));
    std::string kept = file;
    const auto still = KeepStillPicture(kept);
    const auto image = DecodeImage(file, kSide);
    if (!still) {
        Require(!image);
        return 0;
    }
    Require(still->w >= 1 && still->w <= kMaxPictureSide && still->h >= 1 && still->h <= kMaxPictureSide);
    Require(kept.size() <= file.size() + 2);  // with an end, where there was none
    std::string again = kept;
    const auto still_again = KeepStillPicture(again);
    Require(still_again && still_again->w == still->w && still_again->h == still->h && again == kept);
    if (!image) return 0;
    Require(image->w == std::min(still->w, kSide) && image->h == std::min(still->h, kSide));
    Require(image->pixels.size() == static_cast<std::size_t>(image->w) * static_cast<std::size_t>(image->h));
    Require(DecodeImage(kept, kSide) == image);
    return 0;
}
