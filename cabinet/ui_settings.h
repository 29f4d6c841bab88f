// ui_settings.h - the cabinet's own small file: sound switches, volumes, window placement, what
// some eyes need, and the local score list. Main thread only; other threads get copies.
#pragma once

#include <nlohmann/json.hpp>

#include "base/files.h"
#include "cabinet/eye_settings.h"

namespace brickfall {

extern nlohmann::json& ui_doc;  // always an object

void LoadUiSettings();  // at start-up; anything wrong with the file leaves the defaults
// With the present sound values; a failure is silent. A file that the load could not read is left alone for
// the whole run: it may hold scores that nothing else does.
void SaveUiSettings(Flush flush = Flush::kNow);

// Its optional keys `steady`, `palette` and `strength_marks`; what is none of theirs counts as absent.
EyeSettings ReadEyeSettings();

}  // namespace brickfall
