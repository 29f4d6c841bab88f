// shell_driver.h - what the run and the flows ask of the main window. Main thread only.
#pragma once

#include "game/flows.h"
#include "platform/keyboard.h"

namespace brickfall {

inline constexpr int kHeartbeatTimer = 41;

FlowDriver MakeDriver();

GameKey KeyOfGame(Key key);

// The well is painted again, and a screen reader hears of it when it says something else.
void RefreshWell();

}  // namespace brickfall
