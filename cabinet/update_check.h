// update_check.h - whether the download page tells of a newer build. The page is an ordinary web page,
// whatever it holds gives a defined result. Pure but for LatestBuild; any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/build_number.h"

namespace brickfall {

int32_t FindPageBuild(std::string_view page_text);  // -1 when there is none
int32_t ParseBuild(std::string_view text);          // -1 when it is no number, or one above 2^31 - 1
std::string VersionText(bool update_available);
std::string UpdateQuestion(int32_t latest);

int32_t LatestBuild();  // reads the page; blocks for up to 12 s; -1 when nothing was found

}  // namespace brickfall
