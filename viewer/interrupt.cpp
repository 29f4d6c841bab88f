#include "viewer/interrupt.h"

#include <csignal>
#include <initializer_list>

namespace brickfall {
namespace {

volatile std::sig_atomic_t interrupted = 0;

void NoteSignal(int) { interrupted = 1; }

}  // namespace

void WatchForInterrupt() {
    struct sigaction action = {};
    action.sa_handler = NoteSignal;  // without SA_RESTART: what waits is woken
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) ::sigaction(signal, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

bool Interrupted() { return interrupted != 0; }

}  // namespace brickfall
