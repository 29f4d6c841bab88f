// held_keys.h - the two keys that a program holds down, and a run under way that is told of each edge as a
// window would tell it.
#pragma once

#include "game/run_control.h"
#include "players/autopilot.h"

namespace brickfall {

struct HeldKeys {
    bool left = false;
    bool right = false;
};

// For RunDriver.key_down.
inline bool IsHeld(const HeldKeys& held, GameKey key) {
    return key == GameKey::kLeft ? held.left : key == GameKey::kRight && held.right;
}

inline void PressKeys(RunControl& run, const RunDriver& driver, HeldKeys& held, const AutopilotKeys& wanted) {
    const auto edge = [&](GameKey key, bool& is_held, bool is_wanted) {
        if (is_held == is_wanted) return;
        is_held = is_wanted;
        is_wanted ? OnKeyDown(run, driver, key, false) : OnKeyUp(run, driver, key);
    };
    edge(GameKey::kLeft, held.left, wanted.left);
    edge(GameKey::kRight, held.right, wanted.right);
    if (wanted.serve) OnKeyDown(run, driver, GameKey::kSpace, false);
}

}  // namespace brickfall
