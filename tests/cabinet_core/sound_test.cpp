#include "cabinet/sound.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <semaphore>
#include <sstream>
#include <string>
#include <vector>

#include "base/workers.h"
#include "tests/support/manual_clock.h"

namespace brickfall {
namespace {

// The tune as it is written down: lead/bass of each step as MIDI notes, 0 for silence; 2 units of 118 ms long
// or, with a star, 4.
constexpr char kTuneText[] =
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

// What happened, in order: short messages, and marks above their 24 bits.
using Events = std::vector<uint32_t>;

constexpr uint32_t kReset = 1u << 24, kClosed = 2u << 24;

uint32_t Slept(int64_t milliseconds) { return 3u << 24 | static_cast<uint32_t>(milliseconds); }
uint32_t Short(int status, int first, int second = 0) {
    return static_cast<uint32_t>(status | first << 8 | second << 16);
}
uint32_t On(int channel, int note, int velocity) { return Short(0x90 | channel, note, velocity); }
uint32_t Off(int channel, int note) { return Short(0x80 | channel, note); }
uint32_t Volume(int channel, int value) { return Short(0xB0 | channel, 7, value); }
uint32_t Program(int channel, int program) { return Short(0xC0 | channel, program); }
uint32_t Silence(int channel) { return Short(0xB0 | channel, 123); }

Events operator+(Events left, const Events& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

const Events kAllSilent = {Silence(0), Silence(1), Silence(2)};
const Events kPause = kAllSilent + Events{Slept(80)};
// What comes before each pass, and how the thread begins.
const Events kTuneVolume = {Volume(0, 88), Volume(2, 88)};
const Events kBeginning = Events{Program(0, 80), Program(2, 38)} + kTuneVolume;

Events Step(const std::string& written, int volume = 88, const Events& before_its_end = {}) {
    int lead = 0, bass = 0;
    std::sscanf(written.c_str(), "%d/%d", &lead, &bass);
    const bool has_lead = lead != 0;
    return Events{Volume(0, volume), Volume(2, volume)} + Events(has_lead, On(0, lead, 100)) +
           Events{On(2, bass, 86), Slept(written.ends_with('*') ? 472 : 236)} + before_its_end +
           Events(has_lead, Off(0, lead)) + Events{Off(2, bass)};
}
const Events kFirstStep = Step("69/45");

struct Recorder : MidiOut {
    explicit Recorder(Events& into) : events(into) {}
    ~Recorder() override { events.push_back(kClosed); }
    void ShortMessage(uint32_t message) override { events.push_back(message); }
    void Reset() override { events.push_back(kReset); }
    Events& events;
};

// The threads run on the test's own, unless a test says otherwise; each of their sleeps calls the test with
// its number from 1.
class Sound : public testing::Test {
  protected:
    Sound() {
        SetInlineWorkers(true);
        clock_.on_sleep = [this](int64_t milliseconds) {
            events_.push_back(Slept(milliseconds));
            if (asleep_) asleep_(++sleeps_);
        };
    }
    ~Sound() override {
        clock_.on_sleep = nullptr;
        StopSound();
        WaitForWorkers();
        SetInlineWorkers(false);
        music_on = sfx_on = true;
        music_vol = 70;
        sfx_vol = 85;
    }

    // Plays until the end of this sleep.
    Events PlayUntil(int last_sleep) {
        asleep_ = [last_sleep, also = asleep_](int sleep) {
            if (sleep == last_sleep) music_running = false;
            if (also) also(sleep);
        };
        StartSound([this] { return std::make_unique<Recorder>(events_); });
        return events_;
    }

    // As without a thread: the output is open, and nothing has been heard.
    void OpenOnly() {
        PlayUntil(1);
        asleep_ = nullptr;
        music_running = true;
        events_.clear();
    }

    ManualClock clock_;
    Events events_;
    std::function<void(int)> asleep_;
    int sleeps_ = 0;
};

TEST_F(Sound, PlaysTheWrittenTuneAndBeginsItAgain) {
    Events expected = kBeginning + kTuneVolume;
    std::istringstream text(kTuneText);
    int steps = 0;
    for (std::string step; text >> step; ++steps) expected = expected + Step(step);
    EXPECT_EQ(steps, 128);
    asleep_ = [](int sleep) {
        const auto open = []() -> std::unique_ptr<MidiOut> {
            ADD_FAILURE() << "a second start opens a second output";
            return nullptr;
        };
        if (sleep == 1) StartSound(open);
    };
    // The program's end is seen at the head of the next step, after the note offs, and says nothing more.
    EXPECT_EQ(PlayUntil(129), expected + kTuneVolume + kFirstStep);
}

TEST_F(Sound, SwitchedOffInTheMiddleOfAStepEndsItsNotesAndBeginsAnewLater) {
    asleep_ = [](int sleep) {
        if (sleep == 2) {
            music_on = false;
            AllNotesOff();  // as the settings window does
        }
        if (sleep == 4) music_on = true;
        if (sleep == 5) music_on = false;  // and the program ends while it is off
    };
    EXPECT_EQ(PlayUntil(6), kBeginning + kTuneVolume + kFirstStep + Step("72/45", 88, kAllSilent) + kPause +
                                kPause + kTuneVolume + kFirstStep + kPause + kAllSilent);
}

TEST_F(Sound, FollowsTheSliderWithinAStepAndPlaysOnAtNothing) {
    asleep_ = [](int sleep) { music_vol = sleep == 1 ? 0 : 100; };
    EXPECT_EQ(PlayUntil(3), kBeginning + kTuneVolume + kFirstStep + Step("72/45", 0) + Step("76/45", 127));
}

TEST_F(Sound, ClosesWhileItsThreadsSleep) {
    SetInlineWorkers(false);
    std::counting_semaphore<> asleep(0), wake(0);
    clock_.on_sleep = [&](int64_t milliseconds) {
        if (milliseconds == 30) {  // the closing thread's own
            events_.push_back(Slept(30));
            return;
        }
        asleep.release();
        wake.acquire();
    };
    StartSound([this] { return std::make_unique<Recorder>(events_); });
    asleep.acquire();
    const int note[] = {72};
    PlayEffect(note, note);
    asleep.acquire();
    events_.clear();
    StopSound();
    const Events closing = kAllSilent + Events{Slept(30), kReset, kClosed};
    EXPECT_EQ(events_, closing);
    wake.release(2);
    WaitForWorkers();
    EXPECT_EQ(events_, closing);  // their note offs found the output closed
    EXPECT_EQ(clock_.Sleeps(), (std::vector<int64_t>{236, 72, 30}));
    PlayEffect(note, note);
    EXPECT_EQ(WorkersRunning(), 0);
}

TEST_F(Sound, PlaysAnEffectUntilItIsSwitchedOff) {
    const int notes[] = {72, 67, 64, 57}, durations[] = {90, 90, 90, 160};
    OpenOnly();
    PlayEffect(notes, durations);
    const Events jingle = {Volume(1, 107), Program(1, 81), On(1, 72, 112), Slept(90),      Off(1, 72),
                           On(1, 67, 112), Slept(90),      Off(1, 67),     On(1, 64, 112), Slept(90),
                           Off(1, 64),     On(1, 57, 112), Slept(160),     Off(1, 57)};
    EXPECT_EQ(events_, jingle);

    const Events two_notes(jingle.begin(), jingle.begin() + 8);
    for (std::atomic<bool>* const ended_by : {&sfx_on, &music_running}) {
        events_.clear();
        sleeps_ = 0;
        asleep_ = [ended_by](int sleep) {
            if (sleep == 2) *ended_by = false;
        };
        PlayEffect(notes, durations);
        EXPECT_EQ(events_, two_notes);
        *ended_by = true;
    }

    events_.clear();
    sfx_on = false;
    PlayEffect(notes, durations);
    EXPECT_EQ(events_, Events{});
}

TEST_F(Sound, ScalesVolumes) {
    OpenOnly();
    for (const int percent : {100, 85, 70, 1, 0, -5, 1'000'000}) SetChannelVolume(1, percent);
    EXPECT_EQ(events_, (Events{Volume(1, 127), Volume(1, 107), Volume(1, 88), Volume(1, 1), Volume(1, 0),
                               Volume(1, 0), Volume(1, 127)}));
}

TEST_F(Sound, RunsSilentlyWithoutAnOutput) {
    const int note[] = {72};
    asleep_ = [&](int sleep) {
        PlayEffect(note, note);
        if (sleep == 3) StopSound();
    };
    StartSound([] { return nullptr; });
    EXPECT_EQ(clock_.Sleeps(), (std::vector<int64_t>{236, 236, 236, 30}));
}

TEST_F(Sound, AnOutputThatOpensAfterTheEndIsClosedUnheard) {
    StartSound([this] {
        StopSound();  // while the sound server was asked
        return std::make_unique<Recorder>(events_);
    });
    EXPECT_EQ(events_, (Events{Slept(30), kClosed}));
}

}  // namespace
}  // namespace brickfall
