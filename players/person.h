// person.h - a run as a person plays it, who takes time to react, holds a key a little too long or too short,
// misjudges a ball now and then, and tires. Pure, in whole numbers: the same person and seed give the same
// run on every machine.
#pragma once

#include <cstdint>

#include "game/input_tape.h"

namespace brickfall {

struct Person {
    uint64_t seed = 0;         // of all that is left to chance
    int64_t tires_at = 0;      // the score from which on most balls are let go; before it the last one is not
    uint32_t reaction = 14;    // ticks between eye and finger, at least
    uint32_t clumsiness = 2;   // ticks by which a key is held too long or too short, at most
    uint32_t lapses = 10;      // balls misjudged, of 1,000
    bool is_restless = false;  // taps the keys while the ball is away
};

struct PlayedRun {
    InputTape tape;  // as run_control writes it, up to the end event
    int64_t score = 0;
};

// Plays from the first serve until the last ball is lost, which is soon after the person has tired. Time:
// some 30 ns a tick.
PlayedRun PlayAsPerson(const Person& person, int32_t cell_w, int32_t cell_h);

}  // namespace brickfall
