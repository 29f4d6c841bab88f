#include "cabinet/tune_rendering.h"

#include <utility>

#include "base/clock.h"
#include "base/workers.h"
#include "cabinet/sound.h"

namespace brickfall {
namespace {

constexpr int64_t kOnePassMs = int64_t{kTuneUnits} * kStepUnitMs;
constexpr int64_t kTailMs = 400;  // the last notes die away

// Hands every message on; the sound code owns it and lets it go.
class SharedMidi : public MidiOut {
  public:
    explicit SharedMidi(MidiRenderer& renderer) : renderer_(renderer) {}
    void ShortMessage(uint32_t message) override { renderer_.ShortMessage(message); }
    void Reset() override { renderer_.Reset(); }

  private:
    MidiRenderer& renderer_;
};

// Sleeps render; a pass of the tune later the music has to end.
struct RenderingClock {
    explicit RenderingClock(MidiRenderer& to) : renderer(to), clock(SystemClock()) {
        clock.self = this;
        clock.sleep_ms = [](void* self, int64_t milliseconds) {
            auto& rendering = *static_cast<RenderingClock*>(self);
            rendering.renderer.Render(milliseconds);
            rendering.left_ms -= milliseconds;
            if (rendering.left_ms <= 0) music_on = music_running = false;
        };
        clock.unix_millis = [](void*) { return int64_t{0}; };
        clock.monotonic_ns = [](void*) { return int64_t{0}; };
        clock.tick_ms = [](void*) { return uint64_t{0}; };
        InstallClock(&clock);
    }
    ~RenderingClock() { InstallClock(nullptr); }

    MidiRenderer& renderer;
    Clock clock;
    int64_t left_ms = kOnePassMs;
};

}  // namespace

RenderedTune RenderTune(std::unique_ptr<MidiRenderer> renderer) {
    constexpr int kNotes[] = {72, 67, 64, 57};
    constexpr int kDurationsMs[] = {90, 90, 90, 160};
    RenderedTune rendered;
    {
        RenderingClock clock(*renderer);
        const bool music_was_on = music_on.exchange(true);
        StartSound([renderer = renderer.get()] { return std::make_unique<SharedMidi>(*renderer); });
        WaitForWorkers();  // one pass
        rendered.tune_samples = renderer->Samples().size();
        clock.left_ms = INT64_MAX;
        music_running = true;
        PlayEffect(kNotes, kDurationsMs);
        WaitForWorkers();
        renderer->Render(kTailMs);
        StopSound();
        music_on = music_was_on;
    }
    rendered.samples = renderer->Samples();
    return rendered;
}

}  // namespace brickfall
