// input_tape.h - the list of inputs that reached a run's simulation, its wire form, and the seal over it.
// Since the simulation knows no chance, the tape fixes the run. Main thread, except the text functions, which
// are pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace brickfall {

struct GameState;

enum InputCode : uint8_t {
    kInputLeftDown = 1,
    kInputRightDown = 2,
    kInputServe = 7,
    kInputLeftUp = 9,
    kInputRightUp = 10,
    kInputEnd = 255,  // the run ended
};

inline constexpr std::size_t kTapeMaxEvents = 200'000;
inline constexpr uint8_t kTapeFormat = 1;
inline constexpr std::size_t kTapeHeaderBytes = 10;
inline constexpr std::size_t kTapeEventBytes = 5;

struct InputEvent {
    uint32_t tick_ms = 0;  // low 32 bits of the run's simulated clock; a multiple of 16
    uint8_t code = 0;
};

struct InputTape {
    uint8_t start_lives = 0;
    uint16_t cell_w = 0;  // pixels a brick cell when the run started
    uint16_t cell_h = 0;
    std::vector<InputEvent> events;  // in the order accepted; tick_ms never falls
};

// What an input does to the game. False for a serve that finds the ball in flight: it does nothing, and is
// not on the tape.
bool ApplyInput(GameState& game, uint8_t code);

void ResetTape(InputTape& tape, int32_t cell_w, int32_t cell_h);

// Keeps the low 32 bits of the clock. A full tape stays as it is.
void AppendEvent(InputTape& tape, uint64_t clock_ms, uint8_t code);

// Little-endian, no padding: format byte 1, start_lives, cell_w (2 bytes), cell_h (2), event count (4), then
// tick_ms (4) and code (1) of each event. Replaces what `bytes` held.
void SerializeTape(const InputTape& tape, std::vector<uint8_t>& bytes);

std::string TapeToHex(const InputTape& tape);  // lower case
std::size_t TapeHexSize(std::size_t events);   // the length of that text

std::string NormalizeHex(std::string_view text);  // both ends freed of bytes up to 32, then lower-cased

// Either case. False, and empty bytes, for an odd length or a character that is no hexadecimal digit.
bool HexToBytes(std::string_view text, std::vector<uint8_t>& bytes);

// The seal: one SHA-256 over the binary tape whose hexadecimal form this is, as 64 lower-case digits. Empty
// text when the form does not decode.
inline constexpr std::size_t kTapeHashDigits = 64;
std::string TapeHash(std::string_view hex_text);

}  // namespace brickfall
