// workers.h - the one place that starts a thread.
// The program never joins a detached worker, so whatever a worker touches must outlive main: process-wide
// state is allocated once and never destroyed.
#pragma once

#include <cstddef>
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

// Calls `body`, which throws nothing, once for each number below `count`, on at most `at_most` threads at
// once, the calling one among them, and returns when all have been called. Where the system has no thread
// left, fewer do the same work.
void RunInParallel(std::size_t count, std::size_t at_most, const std::function<void(std::size_t)>& body);

// Tests only: makes StartWorker run the body on the calling thread.
void SetInlineWorkers(bool run_inline);

}  // namespace brickfall
