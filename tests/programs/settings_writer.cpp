// settings_writer NUMBER [BYTES]: saves the settings thirty times with this music volume, with a line of
// output after each. With BYTES the system ends it as soon as a file of its would grow beyond.
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>

#include "cabinet/sound.h"
#include "cabinet/ui_settings.h"

int main(int count, char** arguments) {
    using namespace brickfall;
    if (count < 2 || count > 3) return 2;
    if (count == 3) {
        const auto bytes = static_cast<rlim_t>(std::atoi(arguments[2]));
        const rlimit limit = {bytes, bytes};
        const rlimit no_core = {0, 0};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        ::setrlimit(RLIMIT_CORE, &no_core);
    }
    LoadUiSettings();
    music_vol = std::atoi(arguments[1]);
    for (int i = 0; i < 30; ++i) {
        SaveUiSettings();
        std::puts("saved");
        std::fflush(stdout);
    }
    return 0;
}
