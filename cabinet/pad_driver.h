// pad_driver.h - game controllers at the cabinet: they play the run, and work its windows. Main thread only.
#pragma once

#include <memory>
#include <string>

#include "game/run_control.h"
#include "platform/gamepad.h"

namespace brickfall {

inline constexpr int kPadTimer = 44;

// For as long as the main window stands; nothing with nullptr. While no controller is there, the folder's
// changes alone make it look for one.
void StartPads(std::unique_ptr<Gamepads> pads, const std::string& device_folder = kInputDeviceFolder);
void StopPads();

void OnPadTimer();

// What was pressed up to now reaches nobody: the program could not have answered it.
void DropPadPresses();

bool PadHolds(GameKey key);

}  // namespace brickfall
