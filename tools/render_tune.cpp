// render_tune.cpp - one pass of the tune and then the jingle as a WAV file.   render_tune FILE.wav
#include <cstdio>

#include "cabinet/tune_rendering.h"

int main(int count, char** arguments) {
    using namespace brickfall;
    if (count != 2) {
        std::fprintf(stderr, "render_tune: usage: render_tune FILE.wav\n");
        return 2;
    }
    std::unique_ptr<MidiRenderer> renderer = OpenMidiRenderer();
    if (renderer == nullptr) {
        std::fprintf(stderr, "render_tune: there is no General MIDI sound font\n");
        return 1;
    }
    const RenderedTune tune = RenderTune(std::move(renderer));
    if (!WriteWav(arguments[1], tune.samples)) {
        std::fprintf(stderr, "render_tune: cannot write %s\n", arguments[1]);
        return 1;
    }
    std::printf("%s: tune %.2f s, with the jingle %.2f s\n", arguments[1],
                static_cast<double>(tune.tune_samples) / 2 / kRenderRate,
                static_cast<double>(tune.samples.size()) / 2 / kRenderRate);
    return 0;
}
