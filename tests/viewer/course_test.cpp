// A run laid out for looking at, held against the same run played step by step.
#include "viewer/course.h"

#include <gtest/gtest.h>

#include "tests/support/recorded_run.h"

namespace brickfall {
namespace {

// Each step by itself: the state behind every tick, its events included.
std::vector<GameState> PlayedStates(const InputTape& tape) {
    GameState game = NewGame(tape.cell_w, tape.cell_h);
    std::vector<GameState> states;
    std::size_t next = 0;
    for (uint64_t ms = 0;; ms += kTickMs) {
        if (ms > 0) StepGame(game, ms);
        for (; next < tape.events.size() && tape.events[next].tick_ms == ms; ++next)
            ApplyInput(game, tape.events[next].code);
        states.push_back(game);
        if (next == tape.events.size()) return states;
    }
}

TEST(Course, ShowsEveryMomentAsItWasPlayedAndMarksWhatHappened) {
    int64_t score = 0;
    const InputTape tape = PlayedTape(60'000, 7, score);
    const std::vector<GameState> states = PlayedStates(tape);
    Course course(tape);
    EXPECT_EQ(course.End(), CourseEnd::kLost);
    EXPECT_EQ(course.EndText(), "");
    ASSERT_EQ(course.LengthMs(), (states.size() - 1) * kTickMs);
    // Forwards, and then all over the run.
    for (std::size_t tick = 0; tick < states.size(); tick += 97)
        ASSERT_EQ(course.At(tick * kTickMs), states[tick]) << tick;
    for (std::size_t i = 0, tick = 1; i < 500; ++i, tick = (tick * 48'271 + 11) % states.size())
        ASSERT_EQ(course.At(tick * kTickMs + i % kTickMs), states[tick]) << tick;
    EXPECT_EQ(course.At(course.LengthMs() + 99'999).score, score);

    std::vector<Mark> marks;
    for (std::size_t tick = 1; tick < states.size(); ++tick) {
        if (states[tick].level != states[tick - 1].level)
            marks.push_back({tick * kTickMs, MarkKind::kLevelCleared});
        if (states[tick].lives != states[tick - 1].lives)
            marks.push_back({tick * kTickMs, MarkKind::kBallLost});
    }
    EXPECT_GE(marks.size(), 4u);  // three balls, and a level at least
    EXPECT_EQ(course.Marks(), marks);
    EXPECT_EQ(course.NextMark(0), marks.front().tick_ms);
    EXPECT_EQ(course.PreviousMark(marks[1].tick_ms), marks[0].tick_ms);
    EXPECT_EQ(course.PreviousMark(marks[0].tick_ms), 0u);
    const auto first = tape.events.front().tick_ms;
    EXPECT_EQ(course.NextEvent(0), first);
    EXPECT_EQ(course.PreviousEvent(first), 0u);
    EXPECT_EQ(course.PreviousEvent(course.NextEvent(first)), first);
    EXPECT_EQ(course.NextEvent(course.LengthMs()), course.LengthMs());
}

TEST(Course, EndsWhereARunCannotGoOn) {
    int64_t score = 0;
    const InputTape sound = ThreeServes(score);
    InputTape twice = sound, cut = sound, empty = sound, full = sound;
    twice.events[1].tick_ms = twice.events[0].tick_ms;  // the ball is in flight
    cut.events.resize(2);
    empty.events.clear();
    full.events.clear();
    for (std::size_t i = 0; i < kTapeMaxEvents; ++i)
        full.events.push_back(
            {static_cast<uint32_t>(16 * (i / 2)), i % 2 == 0 ? kInputLeftDown : kInputLeftUp});
    struct Row {
        const char* what;
        InputTape tape;
        TapeFault fault;
        CourseEnd end;
        uint64_t length_ms;
        const char* text;
    };
    const Row rows[] = {
        {"sound", sound, TapeFault::kNone, CourseEnd::kLost, sound.events.back().tick_ms, ""},
        {"a serve in flight", twice, TapeFault::kNone, CourseEnd::kFails, twice.events[0].tick_ms,
         "a serve while the ball is in flight"},
        {"no end", cut, TapeFault::kNone, CourseEnd::kFails, cut.events[1].tick_ms, "no event, and no end"},
        {"read in part", cut, TapeFault::kCode, CourseEnd::kFails, cut.events[1].tick_ms,
         "event 2, behind tick"},
        {"empty", empty, TapeFault::kNone, CourseEnd::kFails, 0, "no event"},
        {"full", full, TapeFault::kNone, CourseEnd::kFull, full.events.back().tick_ms, "the tape is full"},
    };
    for (const Row& row : rows) {
        Course course(row.tape, row.fault);
        EXPECT_EQ(course.End(), row.end) << row.what;
        EXPECT_EQ(course.LengthMs(), row.length_ms) << row.what;
        EXPECT_NE(course.EndText().find(row.text), std::string::npos) << row.what << ": " << course.EndText();
        course.At(course.LengthMs() / 2);
        EXPECT_EQ(course.At(0).score, 0) << row.what;
    }
}

}  // namespace
}  // namespace brickfall
