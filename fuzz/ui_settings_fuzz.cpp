// Any settings file is loaded to an object, and what is saved from it loads to the same.
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "cabinet/sound.h"
#include "cabinet/ui_settings.h"
#include "cabinet/window_placement.h"
#include "fuzz/support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    using namespace brickfall;
    static const FuzzStore store;
    const std::string path = store.Path() + "/Orvane/brickfall_ui.json";
    WriteFile(path, std::string_view(reinterpret_cast<const char*>(data), size));
    LoadUiSettings();
    Require(ui_doc.is_object());
    Require(music_vol >= 0 && music_vol <= 100 && sfx_vol >= 0 && sfx_vol <= 100);
    const std::array monitors = {Monitor{{0, 0, 1920, 1080}, {0, 0, 1920, 1080}}};
    const RestoredPlacement placement = RestoreWindowPlacement(monitors);
    Require(placement.size.w == kDefaultWindowW && placement.size.h >= kDefaultWindowH);
    SaveUiSettings();
    const std::string saved = *ReadFile(path);
    LoadUiSettings();
    SaveUiSettings();
    Require(*ReadFile(path) == saved);
    return 0;
}
