// windowless_driver.h - what a program without windows answers to a run and to the flows: nothing is shown,
// every question gets OK, and no key is down. What such a program does otherwise it puts in place itself; of
// what a window must hand on (set_status, record_local_score, post_connect_done, post_pay_done) nothing is
// set.
#pragma once

#include <span>
#include <string_view>

#include "game/flows.h"

namespace brickfall {

inline FlowDriver WindowlessDriver() {
    FlowDriver driver;
    RunDriver& run = driver.run;
    run.enable_control = [](int, bool) {};
    run.invalidate_well = [] {};
    run.invalidate_record_button = [] {};
    run.refresh_layout = [] { return CellSize{32, 32}; };
    run.start_heartbeat = [] {};
    run.focus_main = [] {};
    run.main_has_focus = [] { return true; };
    run.any_tool_window_open = [] { return false; };
    run.play_effect = [](std::span<const int>, std::span<const int>) {};
    run.key_down = [](GameKey) { return false; };
    driver.confirm = [](std::string_view, std::string_view) { return true; };
    driver.begin_check = [](int, std::string_view) {};
    driver.end_check = [] {};
    driver.refresh_wallet_labels = [] {};
    driver.start_pot_refresh = [] {};
    driver.start_board_load = [] {};
    return driver;
}

}  // namespace brickfall
