// random_run.h - a driver that writes down what a run asks of it; a run driven through its keyboard, its
// timer and a manual clock; and a generator of whole runs.
#pragma once

#include <array>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "game/run_control.h"
#include "players/autopilot.h"
#include "tests/support/manual_clock.h"

namespace brickfall {

using Lines = std::vector<std::string>;

struct NotedRun {
    NotedRun() {
        driver.set_status = [this](std::string_view text) { Log("status " + std::string(text)); };
        driver.enable_control = [this](int id, bool on) {
            Log((on ? "enable " : "disable ") + std::to_string(id));
        };
        driver.invalidate_well = [this] { ++well_repaints; };
        driver.invalidate_record_button = [this] { ++button_repaints; };
        driver.refresh_layout = [this] {
            Log("layout");
            return cell;
        };
        driver.start_heartbeat = [this] { Log("heartbeat"); };
        driver.focus_main = [this] { Log("focus"); };
        driver.main_has_focus = [this] { return has_focus; };
        driver.any_tool_window_open = [this] { return tool_window_open; };
        driver.play_effect = [this](std::span<const int> notes, std::span<const int> durations) {
            std::string line = "effect";
            for (std::size_t i = 0; i < notes.size(); ++i) {
                line += " " + std::to_string(notes[i]) + "/" + std::to_string(durations[i]);
            }
            Log(line);
        };
        driver.record_local_score = [this](const std::string& txid) {
            Log("local score '" + txid + "' " + std::to_string(run.final_score));
        };
        driver.key_down = [this](GameKey key) { return key == GameKey::kLeft ? left_down : right_down; };
    }
    NotedRun(const NotedRun&) = delete;
    NotedRun& operator=(const NotedRun&) = delete;

    void Log(const std::string& line) { calls.push_back(line); }
    Lines TakeCalls() { return std::exchange(calls, {}); }

    RunControl run;
    RunDriver driver;
    CellSize cell{32, 32};
    bool left_down = false, right_down = false, has_focus = true, tool_window_open = false;
    Lines calls;
    int well_repaints = 0, button_repaints = 0;
};

struct RunFixture : NotedRun {
    void Pass(int64_t milliseconds) {
        clock.AdvanceMs(milliseconds);
        OnTimer(run, driver);
    }
    // A key's message arrives.
    void Press(GameKey key, bool down = true, bool is_repeat = false) {
        const bool playing = run.mode == kModePlaying;
        down ? OnKeyDown(run, driver, key, is_repeat) : OnKeyUp(run, driver, key);
        runs_ended_by_a_key += playing && run.mode == kModeGameOver;
    }
    // A key moves, and its message arrives or, as when another window has the focus, does not.
    void MoveKey(GameKey key, bool down, bool with_message = true) {
        bool& is_down = key == GameKey::kLeft ? left_down : right_down;
        if (std::exchange(is_down, down) != down && with_message) Press(key, down);
    }
    void Tap(GameKey key) { Press(key); }

    ManualClock clock;
    int runs_ended_by_a_key = 0;  // which came so late that the last ball was lost before it
};

// Plays one run from start to loss: by the autopilot or by chance until `level` is reached or some time has
// passed, with stalls, pauses, keys before the first step and behind a late timer, auto-repeats, and keys
// that move while nobody looks; then it is lost on purpose. `look` is called whenever all has happened that
// belongs to the last tick, which may be now and then more than once.
inline void PlayRandomRun(RunFixture& play, std::mt19937_64& random, int32_t level, uint64_t most_ms,
                          const std::function<void()>& look) {
    const auto chance = [&random](uint64_t one_in) { return random() % one_in == 0; };
    const auto move_key = [&](GameKey key, bool down) {
        play.MoveKey(key, down, /*with_message=*/chance(2));
    };
    const auto any_key = [&] {
        return std::array{GameKey::kLeft, GameKey::kRight, GameKey::kSpace, GameKey::kOther}[random() % 4];
    };
    const auto move_some_keys = [&] {
        move_key(GameKey::kLeft, chance(2));
        move_key(GameKey::kRight, chance(2));
        const GameKey key = any_key();  // ahead of the call, whose arguments have no order of their own
        play.Press(key, /*down=*/true, /*is_repeat=*/chance(2));
    };
    const bool careless = chance(2) && level == 0;
    play.cell = {static_cast<int32_t>(random() % 80), static_cast<int32_t>(random() % 80)};
    play.left_down = play.right_down = false;
    StartRun(play.run, play.driver);
    if (chance(4)) move_some_keys();
    while (play.run.mode == kModePlaying) {
        look();
        const uint64_t stall = careless && chance(300) ? random() % 3'000 : random() % 4;
        play.Pass(static_cast<int64_t>(14 + stall));
        if (chance(500)) {
            chance(2) ? play.Tap(GameKey::kP) : PauseForWindow(play.run, play.driver);
            play.clock.AdvanceMs(static_cast<int64_t>(random() % 400));
            move_some_keys();
            play.Tap(GameKey::kP);
        }
        if (chance(careless ? 50 : 500)) {
            look();
            play.clock.AdvanceMs(static_cast<int64_t>(random() % 100));
            move_some_keys();
        }
        const GameState& game = play.run.game;
        const bool playing_on = game.level < level || (level == 0 && play.run.sim_clock_ms < most_ms);
        AutopilotKeys keys = playing_on ? AutopilotPlay(game) : AutopilotLose(game);
        if (careless && playing_on) {
            if (!chance(20)) continue;
            keys = {.left = chance(2), .right = chance(2), .serve = chance(3)};
        }
        move_key(GameKey::kLeft, keys.left);
        move_key(GameKey::kRight, keys.right);
        if (keys.serve) play.Tap(GameKey::kSpace);
    }
    play.calls.clear();
}

}  // namespace brickfall
