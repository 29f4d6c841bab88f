// settings_writer NUMBER: saves the settings a hundred times with this music volume.
#include <cstdlib>

#include "cabinet/sound.h"
#include "cabinet/ui_settings.h"

int main(int count, char** arguments) {
    using namespace brickfall;
    if (count != 2) return 2;
    LoadUiSettings();
    music_vol = std::atoi(arguments[1]);
    for (int i = 0; i < 100; ++i) SaveUiSettings();
    return 0;
}
