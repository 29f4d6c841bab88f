#include "cabinet/sound.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <semaphore>
#include <utility>
#include <vector>

#include "base/workers.h"
#include "tests/support/manual_clock.h"
#include "tests/support/tune_text.h"

namespace brickfall {
namespace {

// What happened, in order: short messages, and marks above their 24 bits.
using Events = std::vector<uint32_t>;

constexpr uint32_t kReset = 1u << 24;
constexpr uint32_t kClosed = 2u << 24;

uint32_t Slept(int64_t milliseconds) { return 3u << 24 | static_cast<uint32_t>(milliseconds); }
uint32_t On(int channel, int note, int velocity) {
    return static_cast<uint32_t>(0x90 | channel | note << 8 | velocity << 16);
}
uint32_t Off(int channel, int note) { return static_cast<uint32_t>(0x80 | channel | note << 8); }
uint32_t Volume(int channel, int value) {
    return static_cast<uint32_t>(0xB0 | channel | 7 << 8 | value << 16);
}
uint32_t Program(int channel, int program) { return static_cast<uint32_t>(0xC0 | channel | program << 8); }
uint32_t Silence(int channel) { return static_cast<uint32_t>(0xB0 | channel | 123 << 8); }

const Events kAllSilent = {Silence(0), Silence(1), Silence(2)};
// How the thread begins, and what comes before each pass and each step.
const Events kTuneVolume = {Volume(0, 88), Volume(2, 88)};
const Events kBeginning = {Program(0, 80), Program(2, 38), Volume(0, 88), Volume(2, 88)};

Events operator+(Events left, const Events& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Events Step(const TuneNote& note, int volume = 88) {
    Events step = {Volume(0, volume), Volume(2, volume)};
    if (note.lead != 0) step.push_back(On(0, note.lead, 100));
    step.push_back(On(2, note.bass, 86));
    step.push_back(Slept(note.milliseconds));
    if (note.lead != 0) step.push_back(Off(0, note.lead));
    step.push_back(Off(2, note.bass));
    return step;
}

class Recorder : public MidiOut {
  public:
    explicit Recorder(Events& events) : events_(events) {}
    ~Recorder() override { events_.push_back(kClosed); }
    void ShortMessage(uint32_t message) override { events_.push_back(message); }
    void Reset() override { events_.push_back(kReset); }

  private:
    Events& events_;
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

    void Play() {
        StartSound([this] { return std::make_unique<Recorder>(events_); });
    }

    // Plays until the end of this sleep.
    Events PlayUntil(int last_sleep) {
        asleep_ = [last_sleep, also = asleep_](int sleep) {
            if (sleep == last_sleep) music_running = false;
            if (also) also(sleep);
        };
        Play();
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
    const std::vector<TuneNote> tune = WrittenTune();
    ASSERT_EQ(tune.size(), 128u);
    Events expected = kBeginning + kTuneVolume;
    int64_t pass_ms = 0;
    for (const TuneNote& note : tune) {
        expected = expected + Step(note);
        pass_ms += note.milliseconds;
    }
    EXPECT_EQ(pass_ms, 272 * 118);
    // The program's end is seen at the head of the next step, after the note offs, and says nothing more.
    EXPECT_EQ(PlayUntil(129), expected + kTuneVolume + Step(tune[0]));
}

TEST_F(Sound, SwitchedOffInTheMiddleOfAStepEndsItsNotesAndBeginsAnewLater) {
    asleep_ = [](int sleep) {
        if (sleep == 2) {
            music_on = false;
            AllNotesOff();  // as the settings window does
        }
        if (sleep == 4) music_on = true;
    };
    const std::vector<TuneNote> tune = WrittenTune();
    Events second = Step(tune[1]);
    second.insert(second.end() - 2, kAllSilent.begin(), kAllSilent.end());
    EXPECT_EQ(PlayUntil(5), kBeginning + kTuneVolume + Step(tune[0]) + second + kAllSilent +
                                Events{Slept(80)} + kAllSilent + Events{Slept(80)} + kTuneVolume +
                                Step(tune[0]));
}

TEST_F(Sound, SilencesEverythingWhenItEndsWhileSwitchedOff) {
    music_on = false;
    EXPECT_EQ(PlayUntil(1), kBeginning + kAllSilent + Events{Slept(80)} + kAllSilent);
}

TEST_F(Sound, FollowsTheSliderWithinAStepAndPlaysOnAtNothing) {
    asleep_ = [](int sleep) { music_vol = sleep == 1 ? 0 : 100; };
    const std::vector<TuneNote> tune = WrittenTune();
    EXPECT_EQ(PlayUntil(3), kBeginning + kTuneVolume + Step(tune[0]) + Step(tune[1], 0) + Step(tune[2], 127));
}

TEST_F(Sound, ClosesWhileItsThreadsSleep) {
    SetInlineWorkers(false);
    std::counting_semaphore<> asleep(0);
    std::counting_semaphore<> wake(0);
    clock_.on_sleep = [&](int64_t milliseconds) {
        if (milliseconds == 30) {  // the closing thread's own
            events_.push_back(Slept(30));
            return;
        }
        asleep.release();
        wake.acquire();
    };
    Play();
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
    const int notes[] = {72, 67, 64, 57};
    const int durations[] = {90, 90, 90, 160};
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

TEST_F(Sound, StartsOnce) {
    Events second;
    asleep_ = [&](int sleep) {
        if (sleep == 1) StartSound([&second] { return std::make_unique<Recorder>(second); });
    };
    PlayUntil(2);
    EXPECT_EQ(second, Events{});
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
