// report_window.h - takes a text for the operator, which goes on chain sealed. Main thread only.
#pragma once

#include "platform/window.h"

namespace brickfall {

inline constexpr int kControlSendReport = 1402;
inline constexpr Size kReportClientSize = {600, 640};

WindowId OpenReportWindow(WindowId owner);  // not shown yet

void PaintReport(Canvas& canvas);

}  // namespace brickfall
