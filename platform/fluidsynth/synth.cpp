#include "platform/fluidsynth/synth.h"

#include <filesystem>

namespace brickfall {
namespace {

constexpr const char* kSoundFonts[] = {
    "/usr/share/sounds/sf2/TimGM6mb.sf2", "/usr/share/sounds/sf2/default-GM.sf2",
    "/usr/share/sounds/sf3/default-GM.sf3", "/usr/share/sounds/sf2/FluidR3_GM.sf2",
    "/usr/share/soundfonts/default.sf2"};

constexpr double kSampleRate = 44'100;
constexpr double kGain = 0.4;

bool LoadSoundFont(fluid_synth_t* synth) {
    for (const char* const path : kSoundFonts) {
        std::error_code error;
        if (std::filesystem::is_regular_file(path, error) &&
            fluid_synth_sfload(synth, path, 1) != FLUID_FAILED) {
            return true;
        }
    }
    return false;
}

void SilenceTheLibrary() {
    for (const int level : {FLUID_PANIC, FLUID_ERR, FLUID_WARN, FLUID_INFO, FLUID_DBG}) {
        fluid_set_log_function(level, nullptr, nullptr);
    }
}

}  // namespace

Synth OpenSynth() {
    SilenceTheLibrary();
    Synth opened;
    opened.settings.reset(new_fluid_settings());
    if (opened.settings == nullptr) return {};
    fluid_settings_setnum(opened.settings.get(), "synth.sample-rate", kSampleRate);
    fluid_settings_setnum(opened.settings.get(), "synth.gain", kGain);
    opened.synth.reset(new_fluid_synth(opened.settings.get()));
    if (opened.synth == nullptr || !LoadSoundFont(opened.synth.get())) return {};
    return opened;
}

void PlayShortMessage(const Synth& synth, uint32_t message) {
    const int channel = static_cast<int>(message & 0x0F);
    const int first = static_cast<int>(message >> 8 & 0x7F);
    const int second = static_cast<int>(message >> 16 & 0x7F);
    switch (message & 0xF0) {
        case 0x80:
            fluid_synth_noteoff(synth.synth.get(), channel, first);
            break;
        case 0x90:
            fluid_synth_noteon(synth.synth.get(), channel, first, second);
            break;
        case 0xB0:
            fluid_synth_cc(synth.synth.get(), channel, first, second);
            break;
        case 0xC0:
            fluid_synth_program_change(synth.synth.get(), channel, first);
            break;
        default:
            break;
    }
}

}  // namespace brickfall
