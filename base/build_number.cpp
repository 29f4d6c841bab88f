#include "base/build_number.h"

namespace brickfall {

std::string FormatBuild(int32_t build) {
    const int32_t shown = build < 0 ? 1 : build;
    const std::string thousandths = std::to_string(shown % 1000);
    return std::to_string(shown / 1000) + "." + std::string(3 - thousandths.size(), '0') + thousandths;
}

}  // namespace brickfall
