// midi_render.h - the same synthesiser, heard by a program instead of a person: sound comes out as time
// passes.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/midi_out.h"

namespace brickfall {

inline constexpr int kRenderRate = 44'100;  // samples a second of each of two channels

class MidiRenderer : public MidiOut {
  public:
    // Appends what sounds during the next milliseconds to the samples.
    virtual void Render(int64_t milliseconds) = 0;
    // Those since the last call; 16 bits, left and right in turn.
    virtual std::vector<int16_t> TakeSamples() = 0;
};

std::unique_ptr<MidiRenderer> OpenMidiRenderer();  // nullptr without a sound font

// A RIFF/WAVE file of the samples. False when it cannot be written.
bool WriteWav(const std::string& path, const std::vector<int16_t>& samples);

}  // namespace brickfall
