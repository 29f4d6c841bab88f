#include "page/tape_columns.h"

#include <bit>
#include <cstddef>

#include "game/input_tape.h"

namespace brickfall {
namespace {

constexpr std::size_t kTimeBytes = 4;
constexpr int kTickBits = 4;  // below a tick's 16 ms
static_assert(kTapeEventBytes == kTimeBytes + 1);

std::size_t WholeEvents(std::size_t bytes) {
    return bytes < kTapeHeaderBytes ? 0 : (bytes - kTapeHeaderBytes) / kTapeEventBytes;
}

}  // namespace

std::vector<uint8_t> TapeToColumns(std::span<const uint8_t> tape) {
    std::vector<uint8_t> columns(tape.begin(), tape.end());
    const std::size_t count = WholeEvents(tape.size());
    uint32_t former = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const auto event = tape.subspan(kTapeHeaderBytes + i * kTapeEventBytes, kTapeEventBytes);
        uint32_t time = 0;
        for (std::size_t b = 0; b < kTimeBytes; ++b) time |= uint32_t{event[b]} << (8 * b);
        const uint32_t gap = std::rotr(time - former, kTickBits);
        former = time;
        for (std::size_t b = 0; b < kTapeEventBytes; ++b) {
            columns[kTapeHeaderBytes + b * count + i] =
                b < kTimeBytes ? static_cast<uint8_t>(gap >> (8 * b)) : event[b];
        }
    }
    return columns;
}

std::vector<uint8_t> ColumnsToTape(std::span<const uint8_t> columns) {
    std::vector<uint8_t> tape(columns.begin(), columns.end());
    const std::size_t count = WholeEvents(columns.size());
    uint32_t time = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const auto column = [&](std::size_t b) { return columns[kTapeHeaderBytes + b * count + i]; };
        uint32_t gap = 0;
        for (std::size_t b = 0; b < kTimeBytes; ++b) gap |= uint32_t{column(b)} << (8 * b);
        time += std::rotl(gap, kTickBits);
        const std::size_t at = kTapeHeaderBytes + i * kTapeEventBytes;
        for (std::size_t b = 0; b < kTimeBytes; ++b) tape[at + b] = static_cast<uint8_t>(time >> (8 * b));
        tape[at + kTimeBytes] = column(kTimeBytes);
    }
    return tape;
}

}  // namespace brickfall
