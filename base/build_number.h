// build_number.h - which build this is. Pure.
#pragma once

#include <cstdint>
#include <string>

namespace brickfall {

// A build number counts thousandths: 1 is written 0.001 and 1500 is written 1.500.
inline constexpr int32_t kBuildNumber = 1;

std::string FormatBuild(int32_t build);  // a negative one counts as 1

}  // namespace brickfall
