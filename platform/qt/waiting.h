// waiting.h - keeps the player's hand away from a program that could not answer it. Main thread only.
#pragma once

#include <QObject>
#include <memory>

namespace brickfall {

// Drops clicks and keys from EndWait on until all that were made before it have come.
std::unique_ptr<QObject> MakeInputGate();

}  // namespace brickfall
