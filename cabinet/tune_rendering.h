// tune_rendering.h - the tune and the jingle, played by the cabinet's own threads on a clock whose sleeps
// take no time. Main thread only, while nothing else plays; PlayRecorded on any.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "platform/midi_render.h"

namespace brickfall {

struct RenderedTune {
    std::vector<int16_t> samples;  // as MidiRenderer gives them
    std::size_t tune_samples = 0;  // the tune's part; the jingle follows
};

// One pass of the tune, and then the jingle.
RenderedTune RenderTune(std::unique_ptr<MidiRenderer> renderer);

struct TimedMessage {
    int64_t at_ms = 0;
    uint32_t message = 0;  // as MidiOut takes them
};

// What the tune sends from the start on, for so long, and the jingle when the run is over.
std::vector<TimedMessage> RecordSound(int64_t length_ms, int64_t jingle_at_ms);

// Plays them for so long, a little at a time, until `take` gives false.
void PlayRecorded(std::span<const TimedMessage> messages, int64_t length_ms, MidiRenderer& renderer,
                  const std::function<bool(std::span<const int16_t>)>& take);

}  // namespace brickfall
