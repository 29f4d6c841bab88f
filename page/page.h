// page.h - one file of HTML that replays recorded runs in a browser, and says what it finds. It loads
// nothing, and no text of strangers in it can become markup or script. Pure functions; any thread.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace brickfall {

// A recorded run, as its row tells it. Every text may be a stranger's.
struct PageRun {
    std::string name;
    std::string txid;
    std::string verdict;   // the auditor's, in one line
    std::string recorded;  // when
    int64_t score = 0;
    std::string tape;  // hexadecimal, if it is any
    std::string seal;
    std::string face_key = {};  // whose run it is
    std::string face = {};      // JPEG of this program's making, or none
};

// Empty where this build can make pages, else why not.
std::string WhyNoPages();

// `title` stands over the list, where there are several runs; `report`, lines of whoever has judged them,
// below all. Empty without a run, and where no pages can be made.
std::string MakePage(const std::string& title, std::span<const PageRun> runs, const std::string& report = {});

}  // namespace brickfall
