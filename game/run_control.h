// run_control.h - the life of one run: its modes, its clock, its pause and the input path into simulation and
// tape. Main thread only, no lock. It knows no window: whoever drives it hands in RunDriver.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "game/input_tape.h"
#include "game/simulation.h"

namespace brickfall {

// Played when a run has ended.
inline constexpr int kEndJingleNotes[] = {72, 67, 64, 57};
inline constexpr int kEndJingleDurationsMs[] = {90, 90, 90, 160};

enum RunMode : int32_t {
    kModeAttract = 0,   // nothing played since the program started
    kModePlaying = 1,   // a run is going; it may be paused
    kModeGameOver = 2,  // the run has ended and is not recorded
    kModeRecorded = 3,  // the run's score is on chain
};

enum ControlId : int {
    kControlConnect = 1001,
    kControlUnbind = 1002,
    kControlPlay = 1005,
    kControlRecord = 1006,
    kControlStatus = 1007,
    kControlBoard = 1012,
    kControlReport = 1017,
};

enum class GameKey { kLeft, kRight, kSpace, kP, kOther };

struct CellSize {
    int32_t w = 0;
    int32_t h = 0;
};

// What a run asks of whoever drives it.
struct RunDriver {
    std::function<void(std::string_view)> set_status;
    std::function<void(int id, bool on)> enable_control;
    std::function<void()> invalidate_well;
    std::function<void()> invalidate_record_button;
    std::function<CellSize()> refresh_layout;  // lays out, and reports the cell size in pixels
    std::function<void()> start_heartbeat;     // the 16 ms timer; anew replaces the running one
    std::function<void()> focus_main;
    std::function<bool()> main_has_focus;
    std::function<bool()> any_tool_window_open;
    std::function<void(std::span<const int> notes, std::span<const int> durations_ms)> play_effect;
    std::function<void(const std::string& txid)> record_local_score;  // reads RunControl.final_score
    std::function<bool(GameKey)> key_down;                            // left or right, physically
};

struct RunControl {
    RunMode mode = kModeAttract;
    GameState game;
    InputTape tape;
    uint64_t sim_clock_ms = 0;    // the value of the last step, a multiple of 16
    uint64_t run_start_tick = 0;  // wall clock at the start, pushed forward by every pause
    uint64_t pause_tick = 0;
    int64_t final_score = 0;
    bool record_pending = false;
    std::string enter_txid;
    std::string record_txid;
    bool key_left_down = false;
    bool key_right_down = false;
    bool busy = false;  // one wallet operation is in flight
};

void StartRun(RunControl& run, const RunDriver& driver);
void OnTimer(RunControl& run, const RunDriver& driver);  // the heartbeat
void CatchUp(RunControl& run, const RunDriver& driver);  // runs every step that the wall clock owes
void SendInput(RunControl& run, const RunDriver& driver, uint8_t code);
void PollKeys(RunControl& run, const RunDriver& driver);
void OnKeyDown(RunControl& run, const RunDriver& driver, GameKey key, bool is_repeat);
void OnKeyUp(RunControl& run, const RunDriver& driver, GameKey key);
void TogglePause(RunControl& run, const RunDriver& driver);
void PauseForWindow(RunControl& run, const RunDriver& driver);
void FinishRun(RunControl& run, const RunDriver& driver);  // called by CatchUp

}  // namespace brickfall
