// page_content.h - what a page is given of an audit. Pure functions; any thread.
#pragma once

#include <string>
#include <vector>

#include "audit/collect.h"
#include "audit/report.h"
#include "page/page.h"

namespace brickfall {

// `tape` and `seal` as the row has them, whatever they are.
PageRun MakePageRun(const RowAudit& audit, std::string tape, std::string seal);

// Of each record that holds a row, as they are listed to be watched.
std::vector<PageRun> PageRuns(const Collected& collected, const AuditReport& report);

// The report, and behind it the settlement where `scope` is a week of which every record and every payment
// to the pot is listed; else, of a week, why there is none.
std::string PageReport(const AuditScope& scope, const Collected& collected, const AuditReport& report,
                       bool one_each);

}  // namespace brickfall
