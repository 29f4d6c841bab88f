#include "viewer/film.h"

#include <cstdint>
#include <memory>
#include <span>
#include <thread>
#include <utility>
#include <vector>

#include "base/files.h"
#include "cabinet/tune_rendering.h"
#include "platform/image.h"
#include "platform/midi_render.h"
#include "viewer/encoder.h"
#include "viewer/interrupt.h"

namespace brickfall {
namespace {

constexpr char kNoSound[] = "there is no General MIDI sound font; it is without sound";

std::vector<TimedMessage> SoundOf(const FilmFrames& frames) {
    return RecordSound(static_cast<int64_t>(frames.LengthMs()), static_cast<int64_t>(frames.LostAtMs()));
}

}  // namespace

bool ExportFilm(FilmFrames& frames, const std::string& path, const FilmProgress& progress, std::string& note,
                std::string& error) {
    std::unique_ptr<MidiRenderer> renderer = OpenMidiRenderer();
    if (renderer == nullptr) note = kNoSound;
    Encoder encoder;
    if (!encoder.Start(path, frames.PictureSize(), renderer != nullptr, error)) return false;
    // The program takes from either pipe what it needs next, so each has a thread that waits for it.
    std::thread sound;
    if (renderer != nullptr) {
        sound = std::thread([&, messages = SoundOf(frames)] {
            PlayRecorded(
                messages, static_cast<int64_t>(frames.LengthMs()), *renderer,
                [&encoder](std::span<const int16_t> samples) { return encoder.WriteSound(samples); });
            encoder.EndSound();
        });
    }
    bool whole = true;
    for (std::size_t frame = 0; whole && frame < frames.Count(); ++frame) {
        progress(frame, frames.Count());
        whole = encoder.WriteFrame(frames.PaintYuv(frame)) && !Interrupted();
    }
    progress(frames.Count(), frames.Count());
    if (!whole && Interrupted()) encoder.Kill();  // the other pipe is let go as well
    encoder.EndFrames();
    if (sound.joinable()) sound.join();
    const bool finished = encoder.Finish(error);
    if (Interrupted()) error.clear();
    return finished && whole;
}

bool ExportFrames(FilmFrames& frames, const std::string& folder, const FilmProgress& progress,
                  std::string& note, std::string& error) {
    if (!MakeFolders(folder)) {
        error = "cannot make the folder " + folder;
        return false;
    }
    for (std::size_t frame = 0; frame < frames.Count(); ++frame) {
        if (Interrupted()) return false;
        progress(frame, frames.Count());
        std::string number = std::to_string(frame + 1);
        number.insert(0, number.size() < 6 ? 6 - number.size() : 0, '0');
        const std::string path = folder + "/frame-" + number + ".png";
        if (!SavePng(frames.Paint(frame), path)) {
            error = "cannot write " + path;
            return false;
        }
    }
    progress(frames.Count(), frames.Count());
    const std::unique_ptr<MidiRenderer> renderer = OpenMidiRenderer();
    if (renderer == nullptr) {
        note = kNoSound;
        return true;
    }
    std::vector<int16_t> samples;
    PlayRecorded(SoundOf(frames), static_cast<int64_t>(frames.LengthMs()), *renderer,
                 [&samples](std::span<const int16_t> more) {
                     samples.insert(samples.end(), more.begin(), more.end());
                     return !Interrupted();
                 });
    if (Interrupted()) return false;
    if (WriteWav(folder + "/sound.wav", samples)) return true;
    error = "cannot write " + folder + "/sound.wav";
    return false;
}

}  // namespace brickfall
