// seed_board.h - fills a board: players with faces, and the runs that they have recorded in this week and the
// one before, with rows among them that no board may show. The caller guards the world.
#pragma once

#include <cstdint>

#include "sandbox/server/world.h"

namespace brickfall::sandbox {

// Does nothing when this week's rows are there already; the week before is filled only when it is empty too.
// `now` is in Unix seconds and decides the week. False when something could not be made.
bool SeedBoard(World& world, int64_t now);

}  // namespace brickfall::sandbox
