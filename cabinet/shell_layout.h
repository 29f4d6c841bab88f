// shell_layout.h - the controls of the main window, and where they and the well stand. Main thread only.
#pragma once

#include <string_view>

#include "game/run_control.h"
#include "platform/canvas.h"
#include "platform/window.h"

namespace brickfall {

inline constexpr Point kWellAt = {16, 178};

enum MainControlId : int {
    kControlWalletLine = 1003,
    kControlBalanceLine = 1004,
    kControlTitle = 1008,
    kControlMaker = 1009,
    kControlPotLine = 1011,
    kControlHelp = 1013,
    kControlCloseMain = 1014,
    kControlVersion = 1016,
    kControlExplanation = 1018,
    kControlTxid = 1021,  // in the well
};

void CreateMainControls(WindowId window);

bool IsInHeader(int control);

// Lays everything out for the window's present size. The cell size that a new run would take.
CellSize RefreshLayout();

// False for a run whose lower rows a window that is not full screen would cut off.
bool RunFitsWorkArea();

// Sets a line's text; the balance line follows the end of the wallet line.
void SetLine(int control, std::string_view text);
void SetStatus(std::string_view text);  // stands out for a second

// Ends that second.
inline constexpr int kStatusTimer = 43;
void OnStatusTimer();

Color StatusColor();

// The line that explains the status, after that or what it stands on has changed. It takes no place while it
// is empty, or where there is no room between field and status line.
void RefreshExplanation();
void ExplainBox(std::string_view text);  // the same for a text in a box, until the next refresh

// The version line, whole if there is room before the Close button.
void FitVersionLine();

}  // namespace brickfall
