// startup.h - the order in which the cabinet comes up once the platform runs. Main thread only.
#pragma once

#include <memory>
#include <string>

#include "platform/midi_out.h"
#include "platform/window.h"

namespace brickfall {

// Settings, wallet binding, network, log hook, logo, main window with its first background work, placement,
// sound, and the window shown. `instance` is the folder that names this installation; `open_midi` runs after
// the window exists and may give nothing. 0 when the window cannot be made.
WindowId StartCabinet(const std::string& instance, std::unique_ptr<MidiOut> (*open_midi)());

}  // namespace brickfall
