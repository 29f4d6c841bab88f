// Listens to what the synthesiser makes of the tune and the jingle.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>
#include <utility>
#include <vector>

#include "cabinet/sound.h"
#include "cabinet/tune_rendering.h"

namespace brickfall {
namespace {

using Pcm = std::vector<int16_t>;

// How strong one frequency is in a stretch of the left channel (Goertzel).
double Strength(const Pcm& samples, double from_s, double length_s, double hertz) {
    const auto from = static_cast<std::size_t>(from_s * kRenderRate);
    const auto length = static_cast<std::size_t>(length_s * kRenderRate);
    const double factor = 2 * std::cos(2 * std::numbers::pi * hertz / kRenderRate);
    double before = 0, last = 0;
    for (std::size_t i = 0; i < length; ++i) {
        const double next = samples[2 * (from + i)] + factor * last - before;
        before = std::exchange(last, next);
    }
    return std::sqrt(before * before + last * last - factor * before * last) / static_cast<double>(length);
}

// The note from the tune's range whose fundamental is strongest.
int HeardNote(const Pcm& samples, double from_s, double length_s) {
    std::pair<double, int> strongest;
    for (int note = 33; note <= 90; ++note) {
        const double hertz = 440 * std::pow(2, (note - 69) / 12.0);
        strongest = std::max(strongest, {Strength(samples, from_s, length_s, hertz), note});
    }
    return strongest.second;
}

// The loudest sample of a stretch.
int Peak(const Pcm& samples, double from_s, double to_s) {
    const auto at = [](double s) { return 2 * static_cast<std::ptrdiff_t>(s * kRenderRate); };
    int peak = 0;
    std::for_each(samples.begin() + at(from_s), samples.begin() + at(to_s),
                  [&peak](int16_t sample) { peak = std::max(peak, std::abs(int{sample})); });
    return peak;
}

TEST(Listening, HearsTheTuneFromItsFirstToItsLastMomentAndTheJingleAtFullVolume) {
    std::unique_ptr<MidiRenderer> renderer = OpenMidiRenderer();
    if (renderer == nullptr) GTEST_SKIP() << "no General MIDI sound font";
    music_vol = sfx_vol = 100;
    const auto [samples, tune_samples] = RenderTune(std::move(renderer));
    music_vol = 70;
    sfx_vol = 85;
    double at = 272 * 0.118;
    EXPECT_NEAR(static_cast<double>(tune_samples) / 2 / kRenderRate, at, 0.001);
    for (double second = 0; second < at; ++second) EXPECT_GT(Peak(samples, second, second + 0.1), 500);
    EXPECT_GT(Peak(samples, at - 0.1, at), 500);
    EXPECT_LT(Peak(samples, 0, at + 0.8), 32'767) << "distorted";
    EXPECT_LT(Peak(samples, at + 0.78, at + 0.85), 300) << "it does not die away";
    // The tune's last notes are down when the jingle begins.
    for (const auto& [note, milliseconds] : {std::pair{72, 90}, {67, 90}, {64, 90}, {57, 160}}) {
        EXPECT_EQ(HeardNote(samples, at + 0.03, milliseconds / 1e3 - 0.03), note) << "at " << at << " s";
        at += milliseconds / 1e3;
    }
}

TEST(Listening, SaysNothingWhereThereIsNothingToPlayOn) {
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    std::unique_ptr<MidiOut> out = OpenMidiOut();
    if (out != nullptr) out->ShortMessage(0x64'45'90);
    out.reset();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace brickfall
