// course.h - a whole recorded run, laid out for looking at: the state at any moment, where balls were lost
// and levels cleared, and where it ends or fails. Pure; one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "game/replay.h"

namespace brickfall {

enum class MarkKind { kBallLost, kLevelCleared };

struct Mark {
    uint64_t tick_ms = 0;
    MarkKind kind = MarkKind::kBallLost;
    bool operator==(const Mark&) const = default;
};

enum class CourseEnd {
    kLost,   // the last ball is lost: a run
    kFails,  // game and tape part here
    kFull    // the tape is full, and nobody knows how the run went on
};

// A tape that ReadTape has taken, or what it has taken of one, up to its fault.
class Course {
  public:
    explicit Course(InputTape tape, TapeFault fault = TapeFault::kNone);

    const InputTape& Tape() const { return *tape_; }
    uint64_t LengthMs() const { return length_ms_; }
    const std::vector<Mark>& Marks() const { return marks_; }
    CourseEnd End() const { return end_; }
    const std::string& EndText() const { return end_text_; }  // why it ends; empty for kLost

    // The state after the step of this tick, cut to the length. Time: that of a small part of the run.
    const GameState& At(uint64_t tick_ms);
    // How many events have been taken by then, of the last At.
    std::size_t EventsTaken() const { return at_->NextEvent(); }

    // The nearest tick that holds an event, or a mark, before or behind; the start or the end without one.
    uint64_t NextEvent(uint64_t tick_ms) const;
    uint64_t PreviousEvent(uint64_t tick_ms) const;
    uint64_t NextMark(uint64_t tick_ms) const;
    uint64_t PreviousMark(uint64_t tick_ms) const;

  private:
    void Walk();
    void FindMark(const Replay& before, const Replay& behind);

    std::unique_ptr<const InputTape> tape_;  // at one place, since replays refer to it
    std::vector<Replay> stops_;              // from where At goes on, in order
    std::optional<Replay> at_;
    std::vector<Mark> marks_;
    uint64_t length_ms_ = 0;
    CourseEnd end_ = CourseEnd::kLost;
    std::string end_text_;
};

}  // namespace brickfall
