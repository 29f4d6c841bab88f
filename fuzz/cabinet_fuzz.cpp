// Any bytes as the settings file, of which what is loaded stays inside its limits, places the window and
// lasts through a save; and as the download page, of which only the end counts.
#include "cabinet/sound.h"
#include "cabinet/ui_settings.h"
#include "cabinet/update_check.h"
#include "cabinet/window_placement.h"
#include "fuzz/support.h"
#include "wallet/store/shared_store.h"

namespace {

using namespace brickfall;

constexpr std::size_t kPageTail = 24'000;

void CheckSettings(std::string_view bytes) {
    static const FuzzStore store;
    const std::string path = store.Path() + "/Orvane/brickfall_ui.json";
    music_on = sfx_on = true;
    music_vol = 70;
    sfx_vol = 85;
    Require(ReplaceFile(path, bytes, Flush::kLater));
    LoadUiSettings();
    Require(ui_doc.is_object());
    Require(music_vol >= 0 && music_vol <= 100 && sfx_vol >= 0 && sfx_vol <= 100);
    const Monitor monitor = {{0, 0, 1920, 1080}, {0, 0, 1920, 1040}};
    const RestoredPlacement placed = RestoreWindowPlacement({&monitor, 1});
    // Only a place on the monitor's own side of its right and bottom edges shows anything there.
    Require(!placed.position || (placed.position->x < 1920 && placed.position->y < 1080));
    (void)StartMaximized();

    SaveUiSettings();
    if (ReadStoreFile(path).state == FileState::kUnreadable) return Require(ReadFile(path) == bytes);
    const nlohmann::json saved = ui_doc;
    const int volume = music_vol;
    music_vol = 70;
    LoadUiSettings();
    Require(ui_doc == saved && music_vol == volume);
}

void CheckPage(const std::string& page) {
    const int32_t found = FindPageBuild(page);
    for (const int32_t build : {found, ParseBuild(page)}) {
        Require(build >= -1);  // the message adds one in 64 bits
        Require(ParseBuild(FormatBuild(build)) == (build < 0 ? 1 : build));
    }
    // Blanks in front change nothing, and what they push out of the tail is not seen.
    const std::string blanks(page.size() < kPageTail ? kPageTail - page.size() : 0, ' ');
    Require(FindPageBuild("current build version 5 " + blanks + page) == found);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const CostBound cost(800'000, size, 400);
    CheckSettings(AsText(data, size));
    CheckPage(std::string(AsText(data, size)));
    return 0;
}
