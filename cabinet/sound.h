// sound.h - the cabinet's two-voice tune and its jingle, as MIDI short messages. The tune has a thread of its
// own, each effect another, so that no sound ever delays the simulation. The switches and volumes are written
// by the main thread and read by the others, a step late at worst; the output is guarded by a leaf lock held
// for one message at a time.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>

#include "platform/midi_out.h"

namespace brickfall {

inline constexpr int kStepUnitMs = 118;  // one unit of the tune
inline constexpr int kTuneUnits = 272;   // one pass, about 32.1 s

// MIDI channels, counted from 0.
inline constexpr int kLeadChannel = 0;
inline constexpr int kEffectChannel = 1;
inline constexpr int kBassChannel = 2;

extern std::atomic<bool>& music_running;
extern std::atomic<bool>& music_on;
extern std::atomic<bool>& sfx_on;
extern std::atomic<int32_t>& music_vol;  // 0 to 100
extern std::atomic<int32_t>& sfx_vol;    // 0 to 100

// Starts the tune's thread, which opens the output first: a sound server that does not answer keeps nobody
// waiting. Without an output the program is silent. Nothing when the sound has been started already.
void StartSound(std::function<std::unique_ptr<MidiOut>()> open);

// Ends both kinds of thread at their next look, silences and closes the output. Blocks for 30 ms.
void StopSound();

void SendMidi(uint32_t message);
void SetChannelVolume(int channel, int percent);
void SetChannelProgram(int channel, int program);
void AllNotesOff();

void MusicThread();  // the thread's body

// Two lists of one length; durations in milliseconds. Copies both and returns at once.
void PlayEffect(std::span<const int> notes, std::span<const int> durations_ms);

}  // namespace brickfall
