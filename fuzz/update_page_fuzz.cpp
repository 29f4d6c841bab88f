// Any bytes as the download page: a build is found or none, only the page's end counts, and a build written
// out reads as itself.
#include "cabinet/update_check.h"
#include "fuzz/support.h"

namespace {

using namespace brickfall;

constexpr std::size_t kPageTail = 24'000;

void RequireBuild(int32_t build) {
    Require(build >= -1);  // the message adds one in 64 bits
    Require(ParseBuild(FormatBuild(build)) == (build < 0 ? 1 : build));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const std::string page(AsText(data, size));
    const int32_t found = FindPageBuild(page);
    RequireBuild(found);
    RequireBuild(ParseBuild(page));

    // Blanks in front change nothing, and what they push out of the tail is not seen.
    const std::string blanks(size < kPageTail ? kPageTail - size : 0, ' ');
    Require(FindPageBuild("current build version 5 " + blanks + page) == found);
    // Nor does a last tag that never ends, where there is no other.
    if (page.find('<') == std::string::npos && size + 20 < kPageTail) {
        Require(FindPageBuild(page + "<a title=version 6") == found);
    }
    return 0;
}
