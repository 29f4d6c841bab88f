// tune_rendering.h - one pass of the tune and then the jingle, played by the cabinet's own threads on a clock
// whose sleeps render sound instead of waiting. For tools and tests; main thread only.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/midi_render.h"

namespace brickfall {

struct RenderedTune {
    std::vector<int16_t> samples;  // as MidiRenderer gives them
    std::size_t tune_samples = 0;  // the tune's part; the jingle follows
};

RenderedTune RenderTune(std::unique_ptr<MidiRenderer> renderer);

}  // namespace brickfall
