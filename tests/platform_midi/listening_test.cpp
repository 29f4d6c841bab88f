// Listens to the tune as the synthesiser plays it.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "cabinet/sound.h"
#include "cabinet/tune_rendering.h"

namespace brickfall {
namespace {

// How strong one frequency is in a stretch of the left channel (Goertzel).
double Strength(const std::vector<int16_t>& samples, double from_s, double length_s, double hertz) {
    const auto from = static_cast<std::size_t>(from_s * kRenderRate);
    const auto length = static_cast<std::size_t>(length_s * kRenderRate);
    const double factor = 2 * std::cos(2 * std::numbers::pi * hertz / kRenderRate);
    double before = 0;
    double last = 0;
    for (std::size_t i = 0; i < length; ++i) {
        const double next = samples[2 * (from + i)] + factor * last - before;
        before = last;
        last = next;
    }
    return std::sqrt(before * before + last * last - factor * before * last) / static_cast<double>(length);
}

double Hertz(int note) { return 440 * std::pow(2, (note - 69) / 12.0); }

// The note from the lead's range whose fundamental is strongest.
int HeardNote(const std::vector<int16_t>& samples, double from_s, double length_s) {
    int best = 0;
    double strongest = 0;
    for (int note = 56; note <= 90; ++note) {
        const double strength = Strength(samples, from_s, length_s, Hertz(note));
        if (strength > strongest) {
            strongest = strength;
            best = note;
        }
    }
    return best;
}

TEST(Listening, HearsTheTuneAndTheJingle) {
    std::unique_ptr<MidiRenderer> renderer = OpenMidiRenderer();
    if (renderer == nullptr) GTEST_SKIP() << "no sound font";
    const RenderedTune tune = RenderTune(std::move(renderer));
    const double seconds = static_cast<double>(tune.tune_samples) / 2 / kRenderRate;
    EXPECT_NEAR(seconds, 32.1, 0.321);

    // Lead notes of single steps, by their place in units of 118 ms: steps before have 2 units, with a
    // star 4.
    struct Heard {
        int unit;
        int lead;
    };
    int right = 0;
    int wrong = 0;
    for (const auto& [unit, lead] :
         {Heard{0, 69}, Heard{2, 72}, Heard{4, 76}, Heard{12, 81}, Heard{32, 81}, Heard{70, 81},
          Heard{78, 84}, Heard{132, 76}, Heard{136, 88}, Heard{140, 84}}) {
        const double from = unit * 0.118 + 0.06;
        HeardNote(tune.samples, from, 0.15) == lead ? ++right : ++wrong;
    }
    EXPECT_GE(right, 9) << wrong << " notes sounded otherwise";  // the bass's overtones may hide one

    const double jingle = seconds;
    EXPECT_EQ(HeardNote(tune.samples, jingle + 0.02, 0.065), 72);
    EXPECT_EQ(HeardNote(tune.samples, jingle + 0.09 * 3 + 0.03, 0.12), 57);
}

TEST(Listening, IsSilentWithoutAnAudioDeviceAtOnce) {
    // Whatever this machine has: opening neither throws nor takes long, and nothing is heard of a missing
    // one.
    testing::internal::CaptureStderr();
    std::unique_ptr<MidiOut> out = OpenMidiOut();
    if (out != nullptr) out->ShortMessage(0x64'45'90);
    out.reset();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace brickfall
