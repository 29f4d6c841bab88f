#include "cabinet/sound.h"

#include <algorithm>
#include <iterator>
#include <mutex>
#include <numeric>
#include <utility>
#include <vector>

#include "base/clock.h"
#include "base/workers.h"

namespace brickfall {

std::atomic<bool>& music_running = *new std::atomic<bool>(false);
std::atomic<bool>& music_on = *new std::atomic<bool>(true);
std::atomic<bool>& sfx_on = *new std::atomic<bool>(true);
std::atomic<int32_t>& music_vol = *new std::atomic<int32_t>(70);
std::atomic<int32_t>& sfx_vol = *new std::atomic<int32_t>(85);

namespace {

constexpr int kNoteOff = 0x80;
constexpr int kNoteOn = 0x90;
constexpr int kController = 0xB0;
constexpr int kProgramChange = 0xC0;
constexpr int kVolumeController = 7;
constexpr int kAllNotesOffController = 123;

constexpr int kLeadProgram = 80;
constexpr int kEffectProgram = 81;
constexpr int kBassProgram = 38;
constexpr int kLeadVelocity = 100;
constexpr int kEffectVelocity = 112;
constexpr int kBassVelocity = 86;

constexpr int64_t kSilentLookMs = 80;
constexpr int64_t kClosingPauseMs = 30;

struct Step {
    int lead;  // MIDI note; 0: silent
    int bass;
    int units = 2;
};

// clang-format off
constexpr Step kTune[] = {
    {69, 45}, {72, 45}, {76, 45}, {72, 45}, {74, 41}, {76, 41}, {81, 41}, {76, 41},
    {72, 43}, {76, 43}, {79, 43}, {76, 43}, {69, 45}, {64, 40}, {67, 43}, {69, 45},
    {81, 45}, {76, 45}, {72, 45}, {76, 45}, {79, 41}, {74, 41}, {69, 41}, {74, 41},
    {76, 43}, {72, 43}, {67, 43}, {72, 43}, {69, 45, 4}, {64, 40}, {57, 45}, {0, 45},
    {72, 48}, {76, 48}, {81, 48}, {76, 48}, {79, 43}, {81, 43}, {84, 43}, {81, 43},
    {76, 45}, {81, 45}, {84, 45}, {81, 45}, {79, 41}, {76, 41}, {74, 41}, {72, 41},
    {69, 38}, {72, 38}, {76, 38}, {69, 38}, {67, 36}, {69, 36}, {72, 36}, {67, 36},
    {64, 33}, {67, 33}, {69, 33}, {64, 33}, {62, 38}, {64, 38}, {67, 38}, {69, 45, 4},
    {76, 45}, {81, 45}, {88, 45}, {81, 45}, {84, 41}, {81, 41}, {79, 41}, {76, 41},
    {74, 43}, {76, 43}, {79, 43}, {74, 43}, {72, 45}, {69, 45}, {67, 40}, {64, 40},
    {69, 45}, {64, 45}, {67, 43}, {69, 45}, {72, 41}, {76, 41}, {74, 41}, {72, 41},
    {69, 45}, {76, 45}, {72, 43}, {69, 45}, {64, 40}, {67, 43}, {69, 45, 4}, {57, 45, 4},
    {81, 33}, {76, 33}, {79, 36}, {76, 36}, {72, 38}, {69, 38}, {74, 41}, {72, 41},
    {76, 43}, {81, 43}, {79, 45}, {76, 45}, {72, 40}, {69, 40}, {64, 38}, {69, 45, 4},
    {0, 45}, {69, 45}, {0, 45}, {72, 45}, {0, 41}, {76, 41}, {0, 43}, {81, 43},
    {76, 45}, {72, 45}, {69, 40}, {64, 40}, {67, 43}, {69, 45, 4}, {57, 33, 4}, {45, 45, 4},
};
// clang-format on
static_assert(std::size(kTune) == 128);
static_assert(std::accumulate(std::begin(kTune), std::end(kTune), 0,
                              [](int units, const Step& step) { return units + step.units; }) == kTuneUnits);

std::mutex& midi_lock = *new std::mutex;
std::unique_ptr<MidiOut>& midi_out = *new std::unique_ptr<MidiOut>;  // guarded by midi_lock
uint64_t sound_stops = 0;                                            // guarded by midi_lock

uint32_t ShortMessage(int status, int channel, int first, int second) {
    return static_cast<uint32_t>(status | channel | first << 8 | second << 16);
}

void StartNote(int channel, int note, int velocity) {
    SendMidi(ShortMessage(kNoteOn, channel, note, velocity));
}
void StopNote(int channel, int note) { SendMidi(ShortMessage(kNoteOff, channel, note, 0)); }

void SetTuneVolume() {
    SetChannelVolume(kLeadChannel, music_vol);
    SetChannelVolume(kBassChannel, music_vol);
}

void PlayStep(const Step& step) {
    SetTuneVolume();
    if (step.lead != 0) StartNote(kLeadChannel, step.lead, kLeadVelocity);
    if (step.bass != 0) StartNote(kBassChannel, step.bass, kBassVelocity);
    SleepMs(int64_t{step.units} * kStepUnitMs);
    if (step.lead != 0) StopNote(kLeadChannel, step.lead);
    if (step.bass != 0) StopNote(kBassChannel, step.bass);
}

// False when the program is ending.
bool PlayPass() {
    SetTuneVolume();
    for (const Step& step : kTune) {
        if (!music_running) return false;
        if (!music_on) return true;
        PlayStep(step);
    }
    return true;
}

bool OutputIsOpen() {
    const std::lock_guard lock(midi_lock);
    return midi_out != nullptr;
}

void EffectThread(const std::vector<int>& notes, const std::vector<int>& durations_ms) {
    SetChannelVolume(kEffectChannel, sfx_vol);
    SetChannelProgram(kEffectChannel, kEffectProgram);
    for (std::size_t i = 0; i < notes.size() && music_running && sfx_on; ++i) {
        StartNote(kEffectChannel, notes[i], kEffectVelocity);
        SleepMs(durations_ms[i]);
        StopNote(kEffectChannel, notes[i]);
    }
}

}  // namespace

void SendMidi(uint32_t message) {
    const std::lock_guard lock(midi_lock);
    if (midi_out != nullptr) midi_out->ShortMessage(message);
}

void SetChannelVolume(int channel, int percent) {
    const int64_t value = std::clamp<int64_t>(int64_t{percent} * 127 / 100, 0, 127);
    SendMidi(ShortMessage(kController, channel, kVolumeController, static_cast<int>(value)));
}

void SetChannelProgram(int channel, int program) {
    SendMidi(ShortMessage(kProgramChange, channel, program, 0));
}

void AllNotesOff() {
    for (const int channel : {kLeadChannel, kEffectChannel, kBassChannel}) {
        SendMidi(ShortMessage(kController, channel, kAllNotesOffController, 0));
    }
}

void MusicThread() {
    SetChannelProgram(kLeadChannel, kLeadProgram);
    SetChannelProgram(kBassChannel, kBassProgram);
    SetTuneVolume();
    while (music_running) {
        if (music_on) {
            if (!PlayPass()) return;
        } else {
            AllNotesOff();
            SleepMs(kSilentLookMs);
        }
    }
    AllNotesOff();
}

void PlayEffect(std::span<const int> notes, std::span<const int> durations_ms) {
    if (!sfx_on || !OutputIsOpen()) return;
    StartWorker([notes = std::vector<int>(notes.begin(), notes.end()),
                 durations = std::vector<int>(durations_ms.begin(), durations_ms.end())] {
        EffectThread(notes, durations);
    });
}

void StartSound(std::function<std::unique_ptr<MidiOut>()> open) {
    if (music_running.exchange(true)) return;
    uint64_t stops_before = 0;
    {
        const std::lock_guard lock(midi_lock);
        stops_before = sound_stops;
    }
    StartWorker([open = std::move(open), stops_before] {
        std::unique_ptr<MidiOut> output = open();
        {
            const std::lock_guard lock(midi_lock);
            if (stops_before != sound_stops) return;  // stopped meanwhile
            midi_out = std::move(output);
        }
        MusicThread();
    });
}

void StopSound() {
    music_running = false;
    AllNotesOff();
    SleepMs(kClosingPauseMs);
    const std::lock_guard lock(midi_lock);
    ++sound_stops;
    if (midi_out != nullptr) midi_out->Reset();
    midi_out.reset();
}

}  // namespace brickfall
