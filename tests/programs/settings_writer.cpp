// settings_writer NUMBER: saves the settings thirty times with this music volume, with a line of output after
// each.
#include <cstdio>
#include <cstdlib>

#include "cabinet/sound.h"
#include "cabinet/ui_settings.h"

int main(int count, char** arguments) {
    using namespace brickfall;
    if (count != 2) return 2;
    LoadUiSettings();
    music_vol = std::atoi(arguments[1]);
    for (int i = 0; i < 30; ++i) {
        SaveUiSettings();
        std::puts("saved");
        std::fflush(stdout);
    }
    return 0;
}
