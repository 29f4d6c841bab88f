// architect.h - plays the person to whom reports go: keys of its own, and the opening of what is sealed to
// them, in code that shares nothing with what seals. The caller guards the world.
#pragma once

#include <string>

#include "sandbox/server/world.h"

namespace brickfall::sandbox {

// Publishes the architect's identity and writes the key file into the folder, which is made if need be.
bool AppointArchitect(World& world, const std::string& folder);

// Looks at a transaction just accepted. A report to the architect goes among the world's reports, read or
// refused; anything else is passed over.
void NoticeReport(World& world, const Digest& id);

}  // namespace brickfall::sandbox
