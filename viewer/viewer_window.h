// viewer_window.h - the window in which a recorded run is watched. Main thread only.
#pragma once

#include "viewer/viewer_state.h"

namespace brickfall {

inline constexpr int kViewerTimer = 1;

enum ViewerControlId : int {
    kViewerPlay = 1,
    kViewerStepBack,
    kViewerStep,
    kViewerPreviousEvent,
    kViewerNextEvent,
    kViewerSlower,
    kViewerFaster,
    kViewerInputs,
    kViewerGhost,
    kViewerMusic,
    kViewerEffects,
    kViewerFullScreen,
    kViewerBoard,
    kViewerSeek,
    kViewerTime,
};

// Opens the window; 0 when it cannot be opened. The message loop ends with it.
WindowId OpenViewer();

void LoadSource();  // `viewer.source`, on a worker

// One run at once, several as a list to choose from, none as the reason why.
void ShowLoaded(LoadedRuns loaded);
void ShowRun(const WatchedRun& run);
void ShowGhost(const WatchedRun& run);  // as outlines in the first one's field

}  // namespace brickfall
