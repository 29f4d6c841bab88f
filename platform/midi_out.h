// midi_out.h - a synthesiser that takes MIDI short messages. The caller serialises the calls.
#pragma once

#include <cstdint>
#include <memory>

namespace brickfall {

class MidiOut {
  public:
    virtual ~MidiOut() = default;  // closes

    // Status byte in bits 0 to 7, first data byte in bits 8 to 15, second in bits 16 to 23 (MIDI 1.0).
    virtual void ShortMessage(uint32_t message) = 0;
    virtual void Reset() = 0;  // every note off, every controller at its default
};

// The machine's synthesiser on its own audio; nullptr, without a word, when there is no audio device or no
// General MIDI sound font.
std::unique_ptr<MidiOut> OpenMidiOut();

}  // namespace brickfall
