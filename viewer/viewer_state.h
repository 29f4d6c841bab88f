// viewer_state.h - the state that hangs on the viewer's windows. Main thread only.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "board/faces.h"
#include "platform/window.h"
#include "viewer/course.h"
#include "viewer/run_source.h"
#include "viewer/transport.h"

namespace brickfall {

// A run that is on show, and what is known of it.
struct OpenRun {
    WatchedRun run;
    Course course;
};

// Of a run with a tape.
inline std::unique_ptr<OpenRun> OpenRunOf(const WatchedRun& run) {
    return std::make_unique<OpenRun>(OpenRun{run, Course(*run.tape, run.fault)});
}

struct Viewer {
    WindowId main = 0;
    WindowId well = 0;
    WindowId list = 0;

    RunSource source;
    LoadedRuns loaded;
    bool loading = false;
    std::string status;  // in place of a run

    std::unique_ptr<OpenRun> shown;
    std::unique_ptr<OpenRun> ghost;
    std::optional<WatchedRun> waiting_ghost;  // for the first run that is shown

    Transport transport;
    uint64_t last_look_ms = 0;  // wall clock of the last tick of the timer
    bool inputs = false;
    bool music = true;
    bool effects = true;
    std::string spoken;  // as a screen reader has it
};

extern Viewer& viewer;

}  // namespace brickfall
