// The settings file as another program may have left it: what is loaded stays inside its limits, places the
// window, and lasts through a save.
#include "cabinet/sound.h"
#include "cabinet/ui_settings.h"
#include "cabinet/window_placement.h"
#include "fuzz/support.h"
#include "wallet/store/shared_store.h"

namespace {

using namespace brickfall;

void CheckPlacement() {
    const Monitor monitors[] = {{{0, 0, 1920, 1080}, {0, 0, 1920, 1040}},
                                {{-1280, 0, 1280, 1024}, {-1280, 0, 1280, 1024}}};
    const RestoredPlacement placed = RestoreWindowPlacement(monitors);
    Require(placed.size.w == 1320 && placed.size.h >= 1300);
    // Only a place on a monitor's own side of its right and bottom edges shows anything there.
    Require(!placed.position || (placed.position->x < 1920 && placed.position->y < 1080));
    (void)StartMaximized();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static const FuzzStore store;
    const std::string path = store.Path() + "/Orvane/brickfall_ui.json";
    music_on = sfx_on = true;
    music_vol = 70;
    sfx_vol = 85;
    const std::string_view bytes = AsText(data, size);
    Require(ReplaceFile(path, bytes, Flush::kLater));
    LoadUiSettings();
    Require(ui_doc.is_object());
    Require(music_vol >= 0 && music_vol <= 100 && sfx_vol >= 0 && sfx_vol <= 100);
    CheckPlacement();

    SaveUiSettings();
    if (ReadStoreFile(path).state == FileState::kUnreadable) {
        Require(ReadFile(path) == bytes);
        return 0;
    }
    const nlohmann::json saved = ui_doc;
    const int volume = music_vol;
    music_vol = 70;
    LoadUiSettings();
    Require(ui_doc == saved && music_vol == volume);
    return 0;
}
