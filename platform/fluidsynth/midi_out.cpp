#include "platform/midi_out.h"

#include <fluidsynth.h>

#include <array>
#include <filesystem>
#include <string>

#include "platform/fluidsynth/synth.h"

namespace brickfall {
namespace {

struct DriverDeleter {
    void operator()(fluid_audio_driver_t* driver) const { delete_fluid_audio_driver(driver); }
};
using DriverPtr = std::unique_ptr<fluid_audio_driver_t, DriverDeleter>;

class FluidMidiOut : public MidiOut {
  public:
    FluidMidiOut(Synth synth, DriverPtr driver) : synth_(std::move(synth)), driver_(std::move(driver)) {}

    void ShortMessage(uint32_t message) override { PlayShortMessage(synth_, message); }
    void Reset() override { fluid_synth_system_reset(synth_.synth.get()); }

  private:
    Synth synth_;
    DriverPtr driver_;  // ends before the synthesiser that it reads
};

// A sound server or a card that can be opened; asking a library where there is neither makes it complain and
// wait.
const char* AudioDriver() {
    std::error_code error;
    if (std::filesystem::is_directory("/dev/snd", error)) {
        for (const auto& entry : std::filesystem::directory_iterator("/dev/snd", error)) {
            if (entry.path().filename().string().starts_with("pcm")) return "alsa";
        }
    }
    return nullptr;
}

}  // namespace

std::unique_ptr<MidiOut> OpenMidiOut() {
    const char* const name = AudioDriver();
    if (name == nullptr) return nullptr;
    Synth synth = OpenSynth(name);
    if (synth.synth == nullptr) return nullptr;
    DriverPtr driver(new_fluid_audio_driver(synth.settings.get(), synth.synth.get()));
    if (driver == nullptr) return nullptr;
    return std::make_unique<FluidMidiOut>(std::move(synth), std::move(driver));
}

}  // namespace brickfall
