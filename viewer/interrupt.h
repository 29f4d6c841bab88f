// interrupt.h - a signal that asks the program to end, while it writes something that must not be left half
// done.
#pragma once

namespace brickfall {

// From now on Ctrl-C and its like end nothing by themselves; Interrupted tells of them. A write to a program
// that has gone fails instead of ending this one.
void WatchForInterrupt();

bool Interrupted();  // any thread

}  // namespace brickfall
