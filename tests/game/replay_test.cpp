// A tape, replayed from the state in which every run starts, is the run that wrote it, at each of its ticks;
// and what no run has written is found out.
#include "game/replay.h"

#include <gtest/gtest.h>

#include <map>

#include "tests/game/random_run.h"

namespace brickfall {
namespace {

// Run after run on the same state.
struct Replays : testing::Test {
    // Plays a run, and keeps its state at each tick that it was looked at.
    void PlayRun(uint64_t seed, int32_t level, uint64_t most_ms) {
        std::mt19937_64 random(seed);
        states.clear();
        const auto look = [this] { states[Run().sim_clock_ms] = Run().game; };
        PlayRandomRun(play, random, level, most_ms, look);
        look();
    }
    const RunControl& Run() const { return play.run; }

    RunFixture play;
    std::map<uint64_t, GameState> states;
};

void ExpectRun(Replay& replay, const RunControl& run) {
    replay.GoTo(Replay::kToTheEnd);
    EXPECT_EQ(replay.End(), ReplayEnd::kLost) << ReplayEndText(replay);
    EXPECT_EQ(replay.TickMs(), run.sim_clock_ms);
    EXPECT_TRUE(replay.Game() == run.game) << "score " << run.game.score;
}

TEST_F(Replays, BringBackEveryRunAtEveryTick) {
    int with_early_keys = 0;
    for (uint64_t seed = 1; seed <= 2'000 && !HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const int32_t level = seed == 17 ? 2 : seed == 18 ? 10 : 0;
        PlayRun(seed, level, seed * 7'919 % 20'000);
        with_early_keys += Run().tape.events.front().tick_ms == 0;
        std::vector<uint8_t> bytes;
        SerializeTape(Run().tape, bytes);
        InputTape tape;
        ASSERT_EQ(ReadTape(bytes, tape), TapeFault::kNone);
        Replay replay(tape);
        ExpectRun(replay, Run());
        std::mt19937_64 random(seed);
        for (int jump = 0; jump < 30; ++jump) {
            const uint64_t wanted = random() % (Run().sim_clock_ms + 1);
            const auto& [tick_ms, state] = *std::prev(states.upper_bound(wanted));
            replay.GoTo(tick_ms + random() % kTickMs);
            EXPECT_TRUE(replay.Game() == state && replay.TickMs() == tick_ms) << tick_ms;
            EXPECT_EQ(replay.End() == ReplayEnd::kNone, tick_ms < Run().sim_clock_ms);
        }
        ExpectRun(replay, Run());
    }
    EXPECT_GT(with_early_keys, 100);
    EXPECT_GT(play.runs_ended_by_a_key, 10);
}

struct Replayed {
    ReplayEnd end;
    std::size_t event;
    uint64_t tick_ms;
    bool operator==(const Replayed&) const = default;
};

Replayed ReplayOf(const InputTape& tape, std::string& text) {
    Replay replay(tape);
    replay.GoTo(Replay::kToTheEnd);
    replay.GoTo(Replay::kToTheEnd);  // once is enough
    text = ReplayEndText(replay);
    return {replay.End(), replay.NextEvent(), replay.TickMs()};
}

// A run that has served at tick 1 with no key down, and lost its last ball with `lost` as its tick.
TEST_F(Replays, NameTheEventThatNoRunHasWritten) {
    StartRun(play.run, play.driver);
    play.Pass(kTickMs);
    while (Run().mode == kModePlaying) {
        const AutopilotKeys keys = AutopilotLose(Run().game);
        play.MoveKey(GameKey::kLeft, keys.left);
        play.MoveKey(GameKey::kRight, keys.right);
        play.Tap(GameKey::kSpace);
        play.Pass(kTickMs);
    }
    const std::vector<InputEvent> good = Run().tape.events;
    const auto lost = static_cast<uint32_t>(Run().sim_clock_ms);
    const std::size_t last = good.size() - 1;
    ASSERT_TRUE(good[0].tick_ms == 16 && good[0].code == kInputServe);

    struct Row {
        std::size_t cut;  // so many events off the end, then these on, and those ahead of all
        std::vector<InputEvent> behind, ahead;
        Replayed replayed;
        const char* text;
    };
    using enum ReplayEnd;
    const InputEvent before_end = good[last - 1];
    const Row rows[] = {
        {0, {}, {}, {kLost, last, lost}, "the last ball is lost"},
        {1, {{lost - 16, 255}}, {}, {kNotLost, last, lost - 16}, "the end, with balls left"},
        {1, {{lost + 16, 255}}, {}, {kOverBefore, last, lost}, "the last ball was lost before it"},
        {1, {{lost, 1}, {lost, 255}}, {}, {kOverBefore, last, lost}, "the last ball was lost before it"},
        {1, {{lost + 16, 7}}, {}, {kOverBefore, last, lost}, "the last ball was lost before it"},
        {1, {}, {}, {kNoEnd, last, before_end.tick_ms}, "no event, and no end before it"},
        {last + 1, {}, {}, {kNoEnd, 0, 0}, "no event, and no end before it"},
        {last + 1, {{4'294'967'280, 255}}, {}, {kNotLost, 0, 4'294'967'280}, "the end, with balls left"},
        {0, {}, {{0, 1}, {0, 1}}, {kRefused, 1, 0}, "left goes down while it is down"},
        {0, {}, {{0, 9}}, {kRefused, 0, 0}, "left comes up while it is up"},
        {0, {}, {{0, 2}, {16, 2}}, {kRefused, 1, 16}, "right goes down while it is down"},
        {0, {}, {{0, 2}, {0, 10}, {0, 10}}, {kRefused, 2, 0}, "right comes up while it is up"},
        {0, {}, {{16, 7}}, {kRefused, 1, 16}, "a serve while the ball is in flight"},
        {0, {}, {{32, 3}}, {kRefused, 0, 32}, "no input has this code"},
    };
    for (const Row& row : rows) {
        InputTape tape = Run().tape;
        tape.events.resize(tape.events.size() - row.cut);
        tape.events.insert(tape.events.end(), row.behind.begin(), row.behind.end());
        tape.events.insert(tape.events.begin(), row.ahead.begin(), row.ahead.end());
        std::string text;
        EXPECT_TRUE(ReplayOf(tape, text) == row.replayed) << text;
        EXPECT_EQ(text, "event " + std::to_string(row.replayed.event) + ", tick " +
                            std::to_string(row.replayed.tick_ms / 16) + ": " + row.text);
    }

    // The same, with a key when the ball is as good as lost, behind so many idle ones that the tape is full
    // with its end, or just before it.
    std::vector<InputEvent> even = good;
    even.insert(even.end() - 1, {lost - 16, Run().game.left_held ? kInputLeftUp : kInputLeftDown});
    ASSERT_EQ(even.size() % 2, 0u);
    for (const std::size_t too_many : {0u, 2u}) {
        InputTape tape;
        while (tape.events.size() + even.size() < kTapeMaxEvents + too_many) {
            AppendEvent(tape, 0, tape.events.size() % 2 == 0 ? kInputLeftDown : kInputLeftUp);
        }
        for (const InputEvent& event : even) AppendEvent(tape, event.tick_ms, event.code);
        std::string text;
        const Replayed replayed = ReplayOf(tape, text);
        EXPECT_TRUE(replayed == (too_many ? Replayed{kFull, 200'000, before_end.tick_ms}
                                          : Replayed{kLost, 199'999, lost}))
            << text;
    }
}

TEST(ReadTape, NamesTheFaultAndItsEvent) {
    struct Row {
        const char* hex;
        TapeFault fault;
        std::size_t events;  // ahead of the faulty one
    };
    using enum TapeFault;
    const Row rows[] = {
        {"01032000300001000000"
         "00000000ff",
         kNone, 1},
        {"01030000ffff00000000", kNone, 0},
        {"", kTooShort, 0},
        {"010320003000000000", kTooShort, 0},
        {"02032000300000000000", kFormat, 0},
        {"01022000300000000000", kLives, 0},
        {"010320003000410d0300", kTooMany, 0},
        {"010320003000400d0300", kLength, 0},
        {"01032000300000000001", kTooMany, 0},
        {"01032000300001000000"
         "00000000",
         kLength, 0},
        {"01032000300001000000"
         "00000000ff00",
         kLength, 0},
        {"01032000300002000000"
         "1000000001"
         "1000000000",
         kCode, 1},
        {"01032000300002000000"
         "1000000001"
         "1100000009",
         kTick, 1},
        {"01032000300002000000"
         "2000000001"
         "1000000009",
         kOrder, 1},
        {"01032000300002000000"
         "f0ffffff01"
         "00000000ff",
         kOrder, 1},  // the clock's low 32 bits start anew
        {"01032000300003000000"
         "1000000001"
         "10000000ff"
         "10000000ff",
         kBehindEnd, 2},
    };
    for (const Row& row : rows) {
        std::vector<uint8_t> bytes, again;
        ASSERT_TRUE(HexToBytes(row.hex, bytes));
        InputTape tape;
        tape.events = {{1, 1}};
        EXPECT_EQ(ReadTape(bytes, tape), row.fault) << row.hex;
        EXPECT_EQ(tape.events.size(), row.events) << row.hex;
        EXPECT_EQ(std::string(TapeFaultText(row.fault)).empty(), row.fault == kNone);
        EXPECT_EQ(tape.cell_h, bytes.size() < 10 ? 0 : bytes[4] | bytes[5] << 8) << row.hex;
        SerializeTape(tape, again);
        EXPECT_TRUE(row.fault != kNone || again == bytes) << row.hex;
    }
}

}  // namespace
}  // namespace brickfall
