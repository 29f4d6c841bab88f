// main.cpp - the program: one instance of it, its windows, and its end.
#include <unistd.h>

#include <cstdio>

#include "cabinet/pad_driver.h"
#include "cabinet/shell.h"
#include "cabinet/shell_state.h"
#include "cabinet/startup.h"
#include "net/http_client.h"
#include "platform/desktop.h"
#include "platform/midi_out.h"
#include "platform/window.h"

int main(int count, char** arguments) {
    using namespace brickfall;
    const std::string folder = ExecutableFolder();
    if (::chdir(folder.c_str()) != 0) std::perror("brickfall: cannot enter its own folder");
    if (RaiseWindowOfClass(kShellWindowClass)) return 0;
    if (!DisplayAvailable()) {
        std::fprintf(stderr, "brickfall: there is no display to open a window on\n");
        return 1;
    }
    int code = 1;
    {
        const Platform platform(count, arguments);
        // Two starts at once: the one that came second raises the other.
        if (!ClaimWindowClass(kShellWindowClass, [] { BringToFront(shell.main); })) {
            RaiseWindowOfClass(kShellWindowClass);
            return 0;
        }
        if (StartCabinet(folder, OpenMidiOut) != 0) {
            StartPads(OpenGamepads());
            code = RunMessageLoop();
        }
    }
    StopNetwork();
    return code;
}
