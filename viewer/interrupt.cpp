#include "viewer/interrupt.h"

#include <atomic>
#include <csignal>
#include <initializer_list>

namespace brickfall {
namespace {

// Without a lock, so that a signal may set it and every thread read it.
std::atomic<bool> interrupted = false;
static_assert(std::atomic<bool>::is_always_lock_free);

void NoteSignal(int) { interrupted = true; }

}  // namespace

void WatchForInterrupt() {
    struct sigaction action = {};
    action.sa_handler = NoteSignal;  // without SA_RESTART: what waits is woken
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) ::sigaction(signal, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

bool Interrupted() { return interrupted; }

}  // namespace brickfall
