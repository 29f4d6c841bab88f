#include "game/input_tape.h"

#include <span>

#include "base/text.h"
#include "game/simulation.h"

namespace brickfall {
namespace {

void AppendLittleEndian(std::vector<uint8_t>& out, std::size_t value, int byte_count) {
    for (int i = 0; i < byte_count; ++i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

bool IsBlank(char c) { return static_cast<unsigned char>(c) <= 32; }

}  // namespace

bool ApplyInput(GameState& game, uint8_t code) {
    switch (code) {
        case kInputLeftDown:
        case kInputLeftUp:
            game.left_held = code == kInputLeftDown;
            break;
        case kInputRightDown:
        case kInputRightUp:
            game.right_held = code == kInputRightDown;
            break;
        case kInputServe:
            if (game.ball_live) return false;
            ServeBall(game);
            break;
        default:
            break;
    }
    return true;
}

void ResetTape(InputTape& tape, int32_t cell_w, int32_t cell_h) {
    tape.start_lives = kStartLives;
    tape.cell_w = static_cast<uint16_t>(cell_w);
    tape.cell_h = static_cast<uint16_t>(cell_h);
    tape.events.clear();
}

void AppendEvent(InputTape& tape, uint64_t clock_ms, uint8_t code) {
    if (tape.events.size() >= kTapeMaxEvents) return;
    tape.events.push_back({static_cast<uint32_t>(clock_ms), code});
}

void SerializeTape(const InputTape& tape, std::vector<uint8_t>& bytes) {
    bytes.clear();
    bytes.reserve(kTapeHeaderBytes + kTapeEventBytes * tape.events.size());
    bytes.push_back(kTapeFormat);
    bytes.push_back(tape.start_lives);
    AppendLittleEndian(bytes, tape.cell_w, 2);
    AppendLittleEndian(bytes, tape.cell_h, 2);
    AppendLittleEndian(bytes, tape.events.size(), 4);
    for (const InputEvent& event : tape.events) {
        AppendLittleEndian(bytes, event.tick_ms, 4);
        bytes.push_back(event.code);
    }
}

std::size_t TapeHexSize(std::size_t events) { return 2 * (kTapeHeaderBytes + kTapeEventBytes * events); }

std::string TapeToHex(const InputTape& tape) {
    std::vector<uint8_t> bytes;
    SerializeTape(tape, bytes);
    std::string text;
    AppendHex(text, bytes);
    return text;
}

std::string NormalizeHex(std::string_view text) {
    while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
    return Lower(text);
}

bool HexToBytes(std::string_view text, std::vector<uint8_t>& bytes) {
    bytes.clear();
    if (text.size() % 2 != 0) return false;
    bytes.reserve(text.size() / 2);
    for (std::size_t at = 0; at < text.size(); at += 2) {
        const int high = HexDigitValue(text[at]);
        const int low = HexDigitValue(text[at + 1]);
        if (high < 0 || low < 0) {
            bytes.clear();
            return false;
        }
        bytes.push_back(static_cast<uint8_t>(high * 16 + low));
    }
    return true;
}

}  // namespace brickfall
