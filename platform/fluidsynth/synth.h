// synth.h - the synthesiser with its sound font, as the player's output and the renderer to a file share it.
#pragma once

#include <fluidsynth.h>

#include <cstdint>
#include <memory>

namespace brickfall {

struct SettingsDeleter {
    void operator()(fluid_settings_t* settings) const { delete_fluid_settings(settings); }
};
struct SynthDeleter {
    void operator()(fluid_synth_t* synth) const { delete_fluid_synth(synth); }
};

struct Synth {
    std::unique_ptr<fluid_settings_t, SettingsDeleter> settings;
    std::unique_ptr<fluid_synth_t, SynthDeleter> synth;  // empty when there is no sound font
};

// Says nothing, whatever fails.
Synth OpenSynth();

void PlayShortMessage(const Synth& synth, uint32_t message);

}  // namespace brickfall
