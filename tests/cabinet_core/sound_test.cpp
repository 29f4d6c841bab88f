#include "cabinet/sound.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "base/workers.h"
#include "tests/support/manual_clock.h"

namespace brickfall {
namespace {

using Messages = std::vector<uint32_t>;

Messages& heard = *new Messages;
bool& open = *new bool(false);
int& resets = *new int(0);

class Sink : public MidiOut {
  public:
    Sink() { open = true; }
    ~Sink() override { open = false; }
    void ShortMessage(uint32_t message) override { heard.push_back(message); }
    void Reset() override { ++resets; }
};

uint32_t On(int channel, int note, int velocity) {
    return static_cast<uint32_t>(0x90 | channel | note << 8 | velocity << 16);
}
uint32_t Off(int channel, int note) { return static_cast<uint32_t>(0x80 | channel | note << 8); }
uint32_t Volume(int channel, int value) {
    return static_cast<uint32_t>(0xB0 | channel | 7 << 8 | value << 16);
}
uint32_t Program(int channel, int program) { return static_cast<uint32_t>(0xC0 | channel | program << 8); }
uint32_t Silence(int channel) { return static_cast<uint32_t>(0xB0 | channel | 123 << 8); }

// The threads run on the test's own, and sleeping calls the test.
struct Listening {
    Listening() {
        heard.clear();
        resets = 0;
        SetInlineWorkers(true);
        clock.on_sleep = [this](int64_t) {
            ++sleeps == stop_after ? static_cast<void>(music_running = false) : Asleep();
        };
    }
    ~Listening() {
        music_running = false;
        StopSound();
        SetInlineWorkers(false);
        music_on = sfx_on = true;
        music_vol = 70;
        sfx_vol = 85;
    }
    void Asleep() {
        if (asleep) asleep(sleeps);
    }
    void Play(int sleeps_until_the_end) {
        stop_after = sleeps_until_the_end;
        StartSound(std::make_unique<Sink>());
    }

    ManualClock clock;
    std::function<void(int)> asleep;
    int sleeps = 0;
    int stop_after = -1;
};

TEST(Sound, PlaysTheFirstStepsMessageByMessage) {
    Listening sound;
    sound.Play(2);
    EXPECT_EQ(heard, (Messages{Program(0, 80), Program(2, 38), Volume(0, 88), Volume(2, 88), Volume(0, 88),
                               Volume(2, 88), Volume(0, 88), Volume(2, 88), On(0, 69, 100), On(2, 45, 86),
                               Off(0, 69), Off(2, 45), Volume(0, 88), Volume(2, 88), On(0, 72, 100),
                               On(2, 45, 86), Off(0, 72), Off(2, 45)}));
    EXPECT_EQ(sound.clock.Sleeps(), (std::vector<int64_t>{236, 236}));
}

TEST(Sound, PlaysOnePassAndBeginsAgain) {
    Listening sound;
    sound.Play(129);
    const std::vector<int64_t> sleeps = sound.clock.Sleeps();
    ASSERT_EQ(sleeps.size(), 129u);
    int64_t pass = 0;
    std::vector<int> long_steps;
    for (std::size_t i = 0; i < 128; ++i) {
        pass += sleeps[i];
        if (sleeps[i] != 236) long_steps.push_back(static_cast<int>(i));
    }
    EXPECT_EQ(pass, 272 * 118);
    EXPECT_EQ(long_steps, (std::vector<int>{28, 63, 94, 95, 111, 125, 126, 127}));
    Messages notes;
    for (const uint32_t message : heard) {
        if ((message & 0xF0) == 0x90) notes.push_back(message);
    }
    // 5 steps have no lead: 31, 112, 114, 116, 118; every step has a bass.
    ASSERT_EQ(notes.size(), 128u + 123u + 2u);
    EXPECT_EQ(notes[notes.size() - 4], On(0, 45, 100));  // the last step, then the first again
    EXPECT_EQ(notes[notes.size() - 3], On(2, 45, 86));
    EXPECT_EQ(notes[notes.size() - 2], On(0, 69, 100));
}

TEST(Sound, FallsSilentWhenSwitchedOffInTheMiddleOfAStepAndBeginsAnew) {
    Listening sound;
    sound.asleep = [](int sleep) {
        if (sleep == 1) music_on = false;
        if (sleep == 3) music_on = true;
        if (sleep == 2) heard.clear();
    };
    sound.Play(4);
    EXPECT_EQ(sound.clock.Sleeps(), (std::vector<int64_t>{236, 80, 80, 236}));
    const Messages again = {Silence(0),    Silence(1),    Silence(2),    Volume(0, 88),
                            Volume(2, 88), Volume(0, 88), Volume(2, 88), On(0, 69, 100),
                            On(2, 45, 86), Off(0, 69),    Off(2, 45)};
    EXPECT_EQ(heard, again);
}

TEST(Sound, EndsTheNoteOfAStepThatWasSwitchedOff) {
    Listening sound;
    Messages heard_at_second_sleep;
    sound.asleep = [&](int) {
        music_on = false;
        heard_at_second_sleep = std::exchange(heard, {});
    };
    sound.Play(3);
    // The first sleep has cleared what began the note; then the note ends, and the silent branch takes over.
    EXPECT_EQ(heard_at_second_sleep, (Messages{Off(0, 69), Off(2, 45), Silence(0), Silence(1), Silence(2)}));
    EXPECT_EQ(sound.clock.Sleeps(), (std::vector<int64_t>{236, 80, 80}));
}

TEST(Sound, ClosesWhileTheThreadSleeps) {
    Listening sound;
    sound.asleep = [&sound](int sleep) {
        if (sleep != 1) return;
        heard.clear();
        StopSound();  // as the main thread does; it sleeps 30 ms itself
        EXPECT_EQ(heard, (Messages{Silence(0), Silence(1), Silence(2)}));
        heard.clear();
    };
    sound.Play(-1);
    EXPECT_EQ(heard, Messages{});  // the note offs found the output closed
    EXPECT_EQ(sound.clock.Sleeps(), (std::vector<int64_t>{236, 30}));
    EXPECT_EQ(resets, 1);
    EXPECT_FALSE(open);
    PlayEffect(std::vector<int>{72}, std::vector<int>{90});
    EXPECT_EQ(heard, Messages{});
}

TEST(Sound, PlaysAnEffectUntilItIsSwitchedOff) {
    Listening sound;
    sound.asleep = [](int sleep) {
        if (sleep == 1) {
            heard.clear();
            const int notes[] = {72, 67, 64, 57};
            const int durations[] = {90, 90, 90, 160};
            PlayEffect(notes, durations);
            EXPECT_EQ(heard,
                      (Messages{Volume(1, 107), Program(1, 81), On(1, 72, 112), Off(1, 72), On(1, 67, 112),
                                Off(1, 67), On(1, 64, 112), Off(1, 64), On(1, 57, 112), Off(1, 57)}));
            heard.clear();
            music_running = false;
        }
    };
    sound.Play(-1);
    EXPECT_EQ(sound.clock.Sleeps(), (std::vector<int64_t>{236, 90, 90, 90, 160}));

    sfx_on = false;
    heard.clear();
    const int note[] = {72};
    PlayEffect(note, note);
    EXPECT_EQ(heard, Messages{});
}

TEST(Sound, ScalesVolumes) {
    Listening sound;
    sound.Play(1);
    heard.clear();
    for (const int percent : {100, 85, 70, 0, -5, 1'000'000}) SetChannelVolume(1, percent);
    EXPECT_EQ(heard, (Messages{Volume(1, 127), Volume(1, 107), Volume(1, 88), Volume(1, 0), Volume(1, 0),
                               Volume(1, 127)}));
}

TEST(Sound, RunsSilentlyWithoutAnOutput) {
    Listening sound;
    sound.stop_after = 3;
    StartSound(nullptr);
    EXPECT_EQ(sound.clock.Sleeps(), (std::vector<int64_t>{236, 236, 236}));
}

}  // namespace
}  // namespace brickfall
