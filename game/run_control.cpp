#include "game/run_control.h"

#include "base/clock.h"

namespace brickfall {
namespace {

bool IsRunning(const RunControl& run) {
    return run.mode == kModePlaying && !run.game.paused && !run.game.game_over;
}

void Pause(RunControl& run) {
    run.pause_tick = TickMs();
    run.game.paused = true;
}

// Gives one event for an edge, however it was noticed.
void PollKey(RunControl& run, const RunDriver& driver, bool is_down, bool& last_seen, uint8_t down_code,
             uint8_t up_code) {
    if (is_down == last_seen) return;
    last_seen = is_down;
    SendInput(run, driver, is_down ? down_code : up_code);
}

void PressKey(RunControl& run, const RunDriver& driver, bool& last_seen, uint8_t down_code) {
    if (last_seen) return;
    last_seen = true;
    SendInput(run, driver, down_code);
}

void ReleaseKey(RunControl& run, const RunDriver& driver, bool& last_seen, uint8_t up_code) {
    if (!last_seen) return;
    last_seen = false;
    SendInput(run, driver, up_code);
    driver.invalidate_well();
}

}  // namespace

void StartRun(RunControl& run, const RunDriver& driver) {
    const CellSize cell = driver.refresh_layout();
    run.game = NewGame(cell.w, cell.h);
    run.sim_clock_ms = 0;
    run.run_start_tick = TickMs();
    run.pause_tick = 0;
    ResetTape(run.tape, cell.w, cell.h);
    run.key_left_down = false;
    run.key_right_down = false;
    run.mode = kModePlaying;
    driver.refresh_layout();  // the cell size of this run is now the smallest that the well may have
    run.record_txid.clear();
    run.record_pending = false;
    run.final_score = 0;
    driver.start_heartbeat();
    driver.enable_control(kControlRecord, false);
    driver.enable_control(kControlPlay, false);
    driver.focus_main();
    driver.set_status("Left / Right move the paddle. Space serve. P pause.");
}

void OnTimer(RunControl& run, const RunDriver& driver) {
    if (run.mode == kModeGameOver) {
        driver.invalidate_well();
        driver.invalidate_record_button();
        return;
    }
    if (run.mode != kModePlaying || run.game.paused) return;
    if (!driver.any_tool_window_open() && !driver.main_has_focus()) driver.focus_main();
    CatchUp(run, driver);
    PollKeys(run, driver);
    driver.invalidate_well();
}

void CatchUp(RunControl& run, const RunDriver& driver) {
    if (!IsRunning(run)) return;
    const uint64_t elapsed_ms = TickMs() - run.run_start_tick;
    while (run.sim_clock_ms + kTickMs <= elapsed_ms && !run.game.game_over) {
        run.sim_clock_ms += kTickMs;
        StepGame(run.game, run.sim_clock_ms);
    }
    if (run.game.game_over) FinishRun(run, driver);
}

void SendInput(RunControl& run, const RunDriver& driver, uint8_t code) {
    CatchUp(run, driver);
    if (!IsRunning(run)) return;
    if (!ApplyInput(run.game, code)) return;  // what does not act is not on the tape
    AppendEvent(run.tape, run.sim_clock_ms, code);
}

void PollKeys(RunControl& run, const RunDriver& driver) {
    if (!IsRunning(run)) return;
    const bool left = driver.key_down(GameKey::kLeft);
    const bool right = driver.key_down(GameKey::kRight);
    PollKey(run, driver, left, run.key_left_down, kInputLeftDown, kInputLeftUp);
    PollKey(run, driver, right, run.key_right_down, kInputRightDown, kInputRightUp);
}

void OnKeyDown(RunControl& run, const RunDriver& driver, GameKey key, bool is_repeat) {
    if (run.mode != kModePlaying) return;
    if (key == GameKey::kP) {
        TogglePause(run, driver);
    } else if (run.game.paused) {
        return;
    } else if (key == GameKey::kLeft) {
        PressKey(run, driver, run.key_left_down, kInputLeftDown);
    } else if (key == GameKey::kRight) {
        PressKey(run, driver, run.key_right_down, kInputRightDown);
    } else if (key == GameKey::kSpace && !is_repeat) {
        SendInput(run, driver, kInputServe);
    }
    driver.invalidate_well();
}

void OnKeyUp(RunControl& run, const RunDriver& driver, GameKey key) {
    if (run.mode != kModePlaying || run.game.paused) return;
    if (key == GameKey::kLeft) ReleaseKey(run, driver, run.key_left_down, kInputLeftUp);
    if (key == GameKey::kRight) ReleaseKey(run, driver, run.key_right_down, kInputRightUp);
}

void TogglePause(RunControl& run, const RunDriver& driver) {
    if (run.mode != kModePlaying) return;
    if (run.game.paused) {
        if (run.pause_tick != 0) run.run_start_tick += TickMs() - run.pause_tick;
        run.game.paused = false;
        PollKeys(run,
                 driver);  // keys changed during the pause are written down at the tick of the standstill
    } else {
        Pause(run);
    }
    driver.set_status(run.game.paused ? "Paused." : "Back.");
}

void PauseForWindow(RunControl& run, const RunDriver& driver) {
    if (run.mode != kModePlaying || run.game.paused) return;
    Pause(run);
    driver.set_status("Paused.");
    driver.invalidate_well();
}

void FinishRun(RunControl& run, const RunDriver& driver) {
    if (run.mode != kModePlaying) return;
    run.final_score = run.game.score;
    run.mode = kModeGameOver;
    AppendEvent(run.tape, run.sim_clock_ms, kInputEnd);
    run.record_pending = true;
    driver.record_local_score(run.record_txid);  // listed at once, recorded or not
    driver.enable_control(kControlRecord, true);
    driver.enable_control(kControlPlay, true);
    driver.play_effect(kEndJingleNotes, kEndJingleDurationsMs);
    driver.set_status("Game over. Record this score on-chain (1 sat).");
    driver.invalidate_well();
}

}  // namespace brickfall
