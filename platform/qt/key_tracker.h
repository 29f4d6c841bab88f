// key_tracker.h - watches every key event of the program. Main thread only.
#pragma once

#include <QKeyEvent>
#include <QObject>
#include <memory>

#include "platform/keyboard.h"

namespace brickfall {

std::unique_ptr<QObject> MakeKeyTracker();

Key KeyOf(const QKeyEvent& event);
int ToolkitKey(Key key);
void ReleaseAllKeys();

}  // namespace brickfall
