// script_push.h - the pushes of data that scripts are made of. Pure functions; any thread.
#pragma once

#include <optional>

#include "sandbox/server/bytes.h"

namespace brickfall::sandbox {

// Appends the shortest push of the data that carries its length with it.
void PutPush(Bytes& script, ByteView data);

// Takes one opcode off the front of a script that is not empty: the data of a push, or nothing for another
// opcode and for a push that is cut short. `opcode` tells which it was.
std::optional<Bytes> TakeOpcode(ByteView& script, uint8_t& opcode);

}  // namespace brickfall::sandbox
