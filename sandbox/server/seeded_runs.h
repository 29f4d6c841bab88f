// seeded_runs.h - who stands on a filled board, and the runs that they have played by the game's own rules.
// Pure; any thread.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "players/person.h"

namespace brickfall::sandbox {

enum class Picture { kNone, kWebAddress, kInscription };

struct Player {
    const char* name;
    const char* face;
    Picture picture;
    int32_t cell;   // pixels a brick cell in the player's window
    Person person;  // without the seed and the score that tires
};

std::span<const Player> SeededPlayers();

// What is wrong with a row. The first four keep it off the board; the others show only to whoever looks
// behind the signature.
enum class Flaw {
    kNone,
    kForeignKey,
    kBentScore,
    kOtherGame,
    kTooLong,
    kRaisedScore,
    kCopiedTape,  // of the row before, in a window of another size
    kUsedEntry,   // of the row before
    kOtherSeal,   // of the tape of the row before
    kHandMadeEvent
};

struct SeededRun {
    const char* player;
    Flaw flaw = Flaw::kNone;
    int64_t week = 0;
    int64_t entry_time = 0;   // Unix seconds; earlier than `record_time` by more than the run took
    int64_t record_time = 0;  // Unix seconds
    int64_t score = 0;        // as signed
    std::string tape;         // hex
    std::string seal;
};

// The runs of a week, recorded one after the other, evenly from its beginning to `end`. Each week they come
// out a little different.
std::vector<SeededRun> PlayFormerWeek(int64_t week, int64_t end);
std::vector<SeededRun> PlayThisWeek(int64_t week, int64_t end);

}  // namespace brickfall::sandbox
