// shell_state.h - the state that hangs on the main window. Main thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cabinet/board_window.h"
#include "cabinet/well.h"
#include "game/flows.h"
#include "platform/window.h"

namespace brickfall {

// What of a run moves the fee of its record.
struct FeeBasis {
    RunMode mode = kModeAttract;
    std::size_t events = 0;
    int64_t score = 0;

    bool operator==(const FeeBasis&) const = default;
};

// A service that work of the window waits for.
struct ServiceWait {
    std::string_view service;
    uint64_t since_ms = 0;
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
    int runs = 0;  // begun since the start
    EyeSettings eyes;
    CellSize cell = {32, 32};  // of the present layout; a run keeps the one that it began with

    int64_t pot_sats = -1;
    std::string pot_error;
    BoardView board_view;
    bool board_busy = false;
    bool board_again = false;
    int32_t build_latest = -1;
    bool update_available = false;

    // For the fee of a record: who records, from which coins, and what the note was made of.
    std::string paymail;
    std::string pay_address;
    std::vector<int64_t> coins;
    FeeBasis fee_basis;
    FeeNote fee;

    // For the explanation of the status line.
    std::optional<PayKind> asked;  // what the button that was pressed last pays for, if it pays
    bool connected = false;
    bool balance_missed = false;
    std::optional<ServiceWait> wallet_wait;
    std::optional<ServiceWait> board_wait;
    bool counts_seconds = false;

    std::string spoken_well;          // as a screen reader has it
    bool status_is_new = false;       // shown in the text's colour, until its timer says otherwise
    std::string status_before_check;  // stands again after a look-up that the window waits for
};

extern Shell& shell;

}  // namespace brickfall
