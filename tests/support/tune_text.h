// tune_text.h - the tune as it is written down: lead/bass of each step as MIDI notes, 0 for silence; 2 units
// of 118 ms long or, with a star, 4.
#pragma once

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

namespace brickfall {

inline constexpr char kTuneText[] =
    "69/45 72/45 76/45 72/45 74/41 76/41 81/41 76/41 "
    "72/43 76/43 79/43 76/43 69/45 64/40 67/43 69/45 "
    "81/45 76/45 72/45 76/45 79/41 74/41 69/41 74/41 "
    "76/43 72/43 67/43 72/43 69/45* 64/40 57/45 0/45 "
    "72/48 76/48 81/48 76/48 79/43 81/43 84/43 81/43 "
    "76/45 81/45 84/45 81/45 79/41 76/41 74/41 72/41 "
    "69/38 72/38 76/38 69/38 67/36 69/36 72/36 67/36 "
    "64/33 67/33 69/33 64/33 62/38 64/38 67/38 69/45* "
    "76/45 81/45 88/45 81/45 84/41 81/41 79/41 76/41 "
    "74/43 76/43 79/43 74/43 72/45 69/45 67/40 64/40 "
    "69/45 64/45 67/43 69/45 72/41 76/41 74/41 72/41 "
    "69/45 76/45 72/43 69/45 64/40 67/43 69/45* 57/45* "
    "81/33 76/33 79/36 76/36 72/38 69/38 74/41 72/41 "
    "76/43 81/43 79/45 76/45 72/40 69/40 64/38 69/45* "
    "0/45 69/45 0/45 72/45 0/41 76/41 0/43 81/43 "
    "76/45 72/45 69/40 64/40 67/43 69/45* 57/33* 45/45*";

struct TuneNote {
    int lead = 0;
    int bass = 0;
    int milliseconds = 0;
};

inline std::vector<TuneNote> WrittenTune() {
    std::vector<TuneNote> tune;
    std::istringstream text(kTuneText);
    for (std::string step; text >> step;) {
        TuneNote note;
        std::sscanf(step.c_str(), "%d/%d", &note.lead, &note.bass);
        note.milliseconds = step.ends_with('*') ? 472 : 236;
        tune.push_back(note);
    }
    return tune;
}

}  // namespace brickfall
