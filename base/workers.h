// workers.h - the one place that starts a detached thread.
// The program never joins a worker, so whatever a worker touches must outlive main: process-wide state is
// allocated once and never destroyed.
#pragma once

#include <functional>

namespace brickfall {

// Runs `body` on a detached thread of its own. An exception out of `body` ends the program, as does a system
// that cannot start a thread. In inline mode the body has run when the call returns.
void StartWorker(std::function<void()> body);

// How many workers have been started and have not ended.
int WorkersRunning();

// Blocks until no worker runs. For tests and for programs that end in an orderly way; the cabinet does not
// wait.
void WaitForWorkers();

// Tests only: makes StartWorker run the body on the calling thread.
void SetInlineWorkers(bool run_inline);

}  // namespace brickfall
