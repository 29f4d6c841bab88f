// tape_columns.h - the bytes of a tape in an order that packs well, and back. Whatever the bytes are, they
// come back as they were. Pure.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace brickfall {

// The head; of all events the first byte of the time since the event before, then the second, the third and
// the fourth, then the codes; what is left over. The time is turned by four bits, so that its first byte
// counts ticks.
std::vector<uint8_t> TapeToColumns(std::span<const uint8_t> tape);

std::vector<uint8_t> ColumnsToTape(std::span<const uint8_t> columns);

}  // namespace brickfall
