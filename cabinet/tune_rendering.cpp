#include "cabinet/tune_rendering.h"

#include <algorithm>
#include <utility>

#include "base/clock.h"
#include "base/workers.h"
#include "cabinet/sound.h"
#include "game/run_control.h"

namespace brickfall {
namespace {

constexpr int64_t kOnePassMs = int64_t{kTuneUnits} * kStepUnitMs;
constexpr int64_t kTailMs = 400;  // the last notes die away

// Hands every message on; the sound code owns it and lets it go.
class HandedOn : public MidiOut {
  public:
    explicit HandedOn(std::function<void(uint32_t)> to) : to_(std::move(to)) {}
    void ShortMessage(uint32_t message) override { to_(message); }
    void Reset() override {}

  private:
    std::function<void(uint32_t)> to_;
};

// Sleeps are told instead of slept, and the music ends when so much time has passed.
struct TellingClock {
    explicit TellingClock(int64_t length_ms, std::function<void(int64_t)> tell_in)
        : tell(std::move(tell_in)), clock(SystemClock()), left_ms(length_ms) {
        clock.self = this;
        clock.sleep_ms = [](void* self, int64_t milliseconds) {
            auto& telling = *static_cast<TellingClock*>(self);
            telling.tell(milliseconds);
            telling.left_ms -= milliseconds;
            if (telling.left_ms <= 0) music_on = music_running = false;
        };
        clock.unix_millis = [](void*) { return int64_t{0}; };
        clock.monotonic_ns = [](void*) { return int64_t{0}; };
        clock.tick_ms = [](void*) { return uint64_t{0}; };
        InstallClock(&clock);
    }
    ~TellingClock() { InstallClock(nullptr); }

    std::function<void(int64_t)> tell;
    Clock clock;
    int64_t left_ms;
};

// The tune for so long, what `between` does, and the jingle; to the end of both.
void PlayBoth(TellingClock& clock, const std::function<void(uint32_t)>& to,
              const std::function<void()>& between) {
    const bool music_was_on = music_on.exchange(true);
    StartSound([&to] { return std::make_unique<HandedOn>(to); });
    WaitForWorkers();
    between();
    clock.left_ms = INT64_MAX;
    music_running = true;
    PlayEffect(kEndJingleNotes, kEndJingleDurationsMs);
    WaitForWorkers();
    music_on = music_was_on;
}

}  // namespace

RenderedTune RenderTune(std::unique_ptr<MidiRenderer> renderer) {
    RenderedTune rendered;
    TellingClock clock(kOnePassMs, [&renderer](int64_t milliseconds) { renderer->Render(milliseconds); });
    PlayBoth(
        clock, [&renderer](uint32_t message) { renderer->ShortMessage(message); },
        [&] {
            rendered.samples = renderer->TakeSamples();
            rendered.tune_samples = rendered.samples.size();
        });
    renderer->Render(kTailMs);
    StopSound();
    const std::vector<int16_t> jingle = renderer->TakeSamples();
    rendered.samples.insert(rendered.samples.end(), jingle.begin(), jingle.end());
    return rendered;
}

std::vector<TimedMessage> RecordSound(int64_t length_ms, int64_t jingle_at_ms) {
    std::vector<TimedMessage> messages;
    int64_t now_ms = 0;
    TellingClock clock(length_ms, [&now_ms](int64_t milliseconds) { now_ms += milliseconds; });
    const bool effects_were_on = sfx_on.exchange(true);
    PlayBoth(
        clock,
        [&](uint32_t message) {
            messages.push_back({now_ms, message});
        },
        [&] { now_ms = jingle_at_ms; });
    now_ms = length_ms;
    StopSound();
    sfx_on = effects_were_on;
    std::stable_sort(messages.begin(), messages.end(),
                     [](const TimedMessage& a, const TimedMessage& b) { return a.at_ms < b.at_ms; });
    return messages;
}

void PlayRecorded(std::span<const TimedMessage> messages, int64_t length_ms, MidiRenderer& renderer,
                  const std::function<bool(std::span<const int16_t>)>& take) {
    constexpr int64_t kPieceMs = 100;
    for (int64_t now_ms = 0; now_ms < length_ms;) {
        for (; !messages.empty() && messages.front().at_ms <= now_ms; messages = messages.subspan(1))
            renderer.ShortMessage(messages.front().message);
        int64_t to_ms = std::min(now_ms + kPieceMs, length_ms);
        if (!messages.empty()) to_ms = std::min(to_ms, messages.front().at_ms);
        renderer.Render(to_ms - now_ms);
        now_ms = to_ms;
        if (!take(renderer.TakeSamples())) return;
    }
}

}  // namespace brickfall
