#include "cabinet/startup.h"

#include <algorithm>

#include "cabinet/images.h"
#include "cabinet/shell.h"
#include "cabinet/sound.h"
#include "cabinet/ui_settings.h"
#include "cabinet/window_placement.h"
#include "net/http_client.h"
#include "platform/desktop.h"
#include "wallet/link/connect_handshake.h"
#include "wallet/store/app_binds.h"

namespace brickfall {
namespace {

// On a screen smaller than the window the window takes what there is, and wherever it was left, all of it
// comes back into the work area: its title bar to move it by, and its foot row.
void RestorePlacement(WindowId main) {
    const RestoredPlacement placement = RestoreWindowPlacement(Monitors());
    if (placement.position) MoveWindow(main, *placement.position);
    const Rect work = MonitorOf(main).work;
    const Size size = {std::min(placement.size.w, work.w), std::min(placement.size.h, work.h)};
    ResizeWindow(main, size);
    if (!placement.position) return;
    const Rect inside = Rect{placement.position->x, placement.position->y, size.w, size.h}.MovedInside(work);
    MoveWindow(main, {inside.x, inside.y});
}

}  // namespace

WindowId StartCabinet(const std::string& instance, std::unique_ptr<MidiOut> (*open_midi)()) {
    LoadUiSettings();
    BindAtStart(instance, "Brickfall");
    InstallPouchDesktop({RaiseWindowOfClass, ExecutableFolder, StartProgram});
    StartNetwork();
    LoadLogo(LogoFile());
    const WindowId main = OpenMainWindow();
    if (main == 0) return 0;
    RestorePlacement(main);
    StartSound(open_midi);
    ShowWindow(main, StartMaximized() ? ShowState::kMaximized : ShowState::kNormal, StartFullScreen());
    return main;
}

}  // namespace brickfall
