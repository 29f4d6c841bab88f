// shell.h - the main window: its controls, its layout, the messages that the workers bring, and the state
// that hangs on it. Main thread only, but for what posts to the window.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "cabinet/board_window.h"
#include "game/flows.h"
#include "platform/window.h"

namespace brickfall {

inline constexpr char kShellWindowClass[] = "OrvaneBrickfallShell";
inline constexpr int kHeartbeatTimer = 41;

enum MainControlId : int {
    kControlWalletLine = 1003,
    kControlBalanceLine = 1004,
    kControlTitle = 1008,
    kControlMaker = 1009,
    kControlPotLine = 1011,
    kControlHelp = 1013,
    kControlCloseMain = 1014,
    kControlVersion = 1016,
};

// What a worker posts to the main window; each payload is freed by whoever takes the message.
enum PrivateMessage : int {
    kMsgConnectDone = 32769,  // std::string, the result text
    kMsgStatusText = 32770,   // std::string
    kMsgPayDone = 32771,      // value: PayKind; std::string
    kMsgPotDone = 32772,      // PotResult
    kMsgBoardDone = 32773,    // std::unique_ptr<BoardResult>
    kMsgBalanceDone = 32774,  // StatusResult
    kMsgUpdateDone = 32775,   // value: latest build number plus 1; 0 if unknown
};

struct PotResult {
    int64_t sats = -1;  // -1 if unknown
    std::string error;
};

struct Shell {
    WindowId main = 0;
    WindowId well = 0;
    WindowId board = 0;
    WindowId help = 0;
    WindowId settings = 0;
    WindowId report = 0;

    RunControl run;
    FlowDriver driver;
    CellSize cell = {32, 32};  // of the present layout; a run keeps the one that it began with

    int64_t pot_sats = -1;
    std::string pot_error;
    BoardView board_view;
    bool board_busy = false;
    bool board_again = false;
    int32_t build_latest = -1;
    bool update_available = false;

    std::string spoken_well;          // as a screen reader has it
    std::string status_before_check;  // stands again after a look-up that the window waits for
};

extern Shell& shell;

// Makes the main window with everything in it and starts the first background work. 0 when it cannot be made.
WindowId OpenMainWindow();

bool MainWindowProc(WindowId window, Message& message);

CellSize RefreshLayout();
void RefreshWalletLabels();
void RefreshPotLabel();
void StartPotRefresh();
void StartBoardLoad();
void SetStatus(std::string_view text);

// Brings a tool window beside the main window and shows it.
void ShowBeside(WindowId tool_window);

// Satoshis as whole coins with eight decimals, such as "-0.00005000".
std::string FormatBsv(int64_t satoshis);

}  // namespace brickfall
