// page_content.h - what a page is given of an audit. Pure functions but for the faces; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "audit/collect.h"
#include "audit/report.h"
#include "board/faces.h"
#include "page/page.h"

namespace brickfall {

// `tape` and `seal` as the row has them, whatever they are.
PageRun MakePageRun(const RowAudit& audit, std::string tape, std::string seal);

// Of each record that holds a row, as they are listed to be watched.
std::vector<PageRun> PageRuns(const Collected& collected, const AuditReport& report);

inline constexpr std::size_t kMostPageFaces = 100;  // some 300 KB of a page
inline constexpr std::size_t kPageFacesAtOnce = 4;
inline constexpr int64_t kPageFacesNs = 60'000'000'000;

// Puts the players' pictures into the runs, the first players' where there are too many: fetched, read by
// `decode`, and made into files anew by `encode`, both called on several threads. What is not there within a
// minute is left out. Blocks.
void AddFaces(const FaceDecoder& decode, const std::function<std::string(const Image& face)>& encode,
              const AuditProgress& progress, std::vector<PageRun>& runs);

// The report, and behind it the settlement where `scope` is a week of which every record and every payment
// to the pot is listed; else, of a week, why there is none.
std::string PageReport(const AuditScope& scope, const Collected& collected, const AuditReport& report,
                       bool one_each);

}  // namespace brickfall
