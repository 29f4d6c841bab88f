// settings_window.h - the sound switches and volumes, and the game's web address. Main thread only.
#pragma once

#include "platform/window.h"

namespace brickfall {

WindowId OpenSettingsWindow(WindowId owner);  // not shown yet

}  // namespace brickfall
