// replay.h - reads the wire form of a tape strictly, and plays a tape again: the state at any tick, and
// whether game and tape agree to the end. Pure, like the simulation: no clock, no network, and a step
// allocates nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>

#include "game/input_tape.h"
#include "game/simulation.h"

namespace brickfall {

// Why bytes are no tape that a run has written.
enum class TapeFault {
    kNone,
    kTooShort,  // shorter than a header
    kFormat,    // a format byte that is not 1
    kLives,     // not the lives that every run starts with
    kTooMany,   // a count above kTapeMaxEvents
    kLength,    // the count says another length
    kCode,      // a code that no input has
    kTick,      // a time between two ticks
    kOrder,     // a time before that of the event ahead of it
    kBehindEnd  // something stands behind the end event
};

// Reads what SerializeTape writes. A tape keeps the low 32 bits of the clock alone, so that of a run of more
// than 49.7 days nobody can say when it went on: its next event goes back in time and is refused as kOrder.
// On any other result than kNone `tape` holds the header, if there is one, and the events ahead of the faulty
// one; the number of these is that one's number.
TapeFault ReadTape(std::span<const uint8_t> bytes, InputTape& tape);

// "" for kNone.
const char* TapeFaultText(TapeFault fault);

enum class ReplayEnd {
    kNone,        // it goes on
    kLost,        // the last ball is lost on the very tick of the end event: a run
    kNotLost,     // the end event comes while the game goes on
    kOverBefore,  // the game is over before an event
    kRefused,     // the game does not take the event: it would not be on the tape
    kNoEnd,       // the events end without an end event
    kFull         // the same where the tape is full: what came behind them, nobody knows
};

// A tape and a place in it. Refers to the tape, which must outlive it unchanged.
class Replay {
  public:
    static constexpr uint64_t kToTheEnd = std::numeric_limits<uint64_t>::max();

    explicit Replay(const InputTape& tape);

    // Goes to the state after the step of `tick_ms` and the events stamped with it, from here or, if that
    // lies behind, from the start; not beyond the end. Time: some 3 ns a step.
    void GoTo(uint64_t tick_ms);

    const GameState& Game() const { return game_; }
    uint64_t TickMs() const { return tick_ms_; }  // of the last step, a multiple of 16; 0 at the start
    // The number of the event ahead; once the end is reached, of the one that ended it.
    std::size_t NextEvent() const { return next_; }
    uint8_t NextCode() const { return next_ < tape_.events.size() ? tape_.events[next_].code : 0; }
    ReplayEnd End() const { return end_; }

  private:
    void Restart();
    void StepTo(uint64_t tick_ms);
    void SkipTo(uint64_t tick_ms);
    void TakeEvent();

    const InputTape& tape_;
    GameState game_;
    uint64_t tick_ms_ = 0;
    std::size_t next_ = 0;
    ReplayEnd end_ = ReplayEnd::kNone;
};

// Why the replay has ended, in words, with the number of the event (from 0) where there is one; "" while it
// goes on.
std::string ReplayEndText(const Replay& replay);

}  // namespace brickfall
