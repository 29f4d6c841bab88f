// run_list_window.h - the runs that can be watched, each with its face and the auditor's verdict. Main thread
// only.
#pragma once

#include <functional>

#include "viewer/run_source.h"
#include "viewer/viewer_state.h"

namespace brickfall {

inline constexpr int kFirstListRow = 100;  // the control of the first row on the page

// `choose` gets the run that was clicked, after the window has gone. One list at a time.
void OpenRunList(const std::function<void(const WatchedRun&)>& choose);

void RefreshRunList();  // faces have come

}  // namespace brickfall
