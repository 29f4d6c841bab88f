#include "platform/midi_render.h"

#include <utility>

#include "base/files.h"
#include "platform/fluidsynth/synth.h"

namespace brickfall {
namespace {

class FluidRenderer : public MidiRenderer {
  public:
    explicit FluidRenderer(Synth synth) : synth_(std::move(synth)) {}

    void ShortMessage(uint32_t message) override { PlayShortMessage(synth_, message); }
    void Reset() override { fluid_synth_system_reset(synth_.synth.get()); }

    void Render(int64_t milliseconds) override {
        const int64_t before = rendered_ms_ * kRenderRate / 1'000;
        rendered_ms_ += milliseconds;
        const auto frames = static_cast<std::size_t>(rendered_ms_ * kRenderRate / 1'000 - before);
        const std::size_t from = samples_.size();
        samples_.resize(from + 2 * frames);
        int16_t* const out = samples_.data() + from;
        fluid_synth_write_s16(synth_.synth.get(), static_cast<int>(frames), out, 0, 2, out, 1, 2);
    }

    std::vector<int16_t> TakeSamples() override { return std::exchange(samples_, {}); }

  private:
    Synth synth_;
    std::vector<int16_t> samples_;
    int64_t rendered_ms_ = 0;
};

void AppendLe(std::string& file, uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) file += static_cast<char>(value >> (8 * i) & 0xFF);
}

}  // namespace

std::unique_ptr<MidiRenderer> OpenMidiRenderer() {
    Synth synth = OpenSynth();
    return synth.synth != nullptr ? std::make_unique<FluidRenderer>(std::move(synth)) : nullptr;
}

bool WriteWav(const std::string& path, const std::vector<int16_t>& samples) {
    const auto data_size = static_cast<uint32_t>(samples.size() * sizeof(int16_t));
    std::string file = "RIFF";
    AppendLe(file, 36 + data_size, 4);
    file += "WAVEfmt ";
    AppendLe(file, 16, 4);
    AppendLe(file, 1, 2);  // PCM
    AppendLe(file, 2, 2);  // channels
    AppendLe(file, kRenderRate, 4);
    AppendLe(file, kRenderRate * 4, 4);  // bytes a second
    AppendLe(file, 4, 2);                // bytes a frame
    AppendLe(file, 16, 2);               // bits a sample
    file += "data";
    AppendLe(file, data_size, 4);
    for (const int16_t sample : samples) AppendLe(file, static_cast<uint16_t>(sample), 2);
    return ReplaceFile(path, file);
}

}  // namespace brickfall
