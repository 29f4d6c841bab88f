// What a game controller does to a run and to the windows, from a controller that SDL makes up on.
#include <SDL.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <initializer_list>
#include <optional>

#include "cabinet/pad_driver.h"
#include "cabinet/shell_state.h"
#include "cabinet/sound.h"
#include "platform/focus.h"
#include "tests/cabinet/cabinet_fixture.h"

namespace brickfall {
namespace {

constexpr int kHelp = 1013, kMusicVolume = 1303;

class VirtualPad {
  public:
    VirtualPad() {
        SDL_VirtualJoystickDesc about{};
        about.version = SDL_VIRTUAL_JOYSTICK_DESC_VERSION;
        about.type = SDL_JOYSTICK_TYPE_GAMECONTROLLER;
        about.naxes = SDL_CONTROLLER_AXIS_MAX;
        about.nbuttons = SDL_CONTROLLER_BUTTON_MAX;
        about.name = "Pad";
        joystick_ = SDL_JoystickOpen(SDL_JoystickAttachVirtualEx(&about));
    }
    ~VirtualPad() {
        const SDL_JoystickID id = SDL_JoystickInstanceID(joystick_);
        for (int device = SDL_NumJoysticks() - 1; device >= 0; --device) {
            if (SDL_JoystickGetDeviceInstanceID(device) == id) SDL_JoystickDetachVirtual(device);
        }
        SDL_JoystickClose(joystick_);
    }
    VirtualPad(const VirtualPad&) = delete;
    VirtualPad& operator=(const VirtualPad&) = delete;

    void Button(SDL_GameControllerButton button, bool down) {
        EXPECT_EQ(SDL_JoystickSetVirtualButton(joystick_, button, down ? 1 : 0), 0) << SDL_GetError();
    }
    void Stick(int x, int y = 0) {
        SDL_JoystickSetVirtualAxis(joystick_, SDL_CONTROLLER_AXIS_LEFTX, static_cast<Sint16>(x));
        SDL_JoystickSetVirtualAxis(joystick_, SDL_CONTROLLER_AXIS_LEFTY, static_cast<Sint16>(y));
    }

  private:
    SDL_Joystick* joystick_ = nullptr;
};

struct PadCabinet : CabinetFixture {
    PadCabinet() { StartPads(OpenGamepads(), devices.Path()); }
    ~PadCabinet() { StopPads(); }

    // As the machine shows it: a file comes or goes.
    void Plug() {
        pad.emplace();
        WriteFile(devices.Path() + "/event1", "");
        PumpMessages();
    }
    void Unplug() {
        pad.reset();
        std::filesystem::remove(devices.Path() + "/event1");
        PumpMessages();
    }
    void Look() const {
        FireTimer(main, kPadTimer);
        PumpMessages();
    }
    void Set(SDL_GameControllerButton button, bool down) {
        pad->Button(button, down);
        Look();
    }
    void Tap(SDL_GameControllerButton button) {
        Set(button, true);
        Set(button, false);
    }
    void Push(int x, int y = 0) {
        pad->Stick(x, y);
        Look();
    }

    TempFolder devices;
    std::optional<VirtualPad> pad;
};

// One run to its end, by whatever `act` presses: for four keys of a run whether it is down.
std::vector<uint8_t> PlayRun(CabinetFixture& cabinet, const std::function<void(GameKey, bool)>& act) {
    constexpr struct {
        int after_ms;
        GameKey key;
        bool down;
    } kEdges[] = {
        {16, GameKey::kLeft, true},    {16, GameKey::kSpace, true},    {0, GameKey::kSpace, false},
        {320, GameKey::kRight, true},  {48, GameKey::kLeft, false},    {5, GameKey::kSpace, true},
        {0, GameKey::kSpace, false},   {160, GameKey::kP, true},       {0, GameKey::kP, false},
        {900, GameKey::kRight, false}, {0, GameKey::kLeft, true},      {77, GameKey::kP, true},
        {0, GameKey::kP, false},       {1'000, GameKey::kLeft, false}, {3, GameKey::kLeft, true},
        {0, GameKey::kLeft, false},
    };
    cabinet.BeginRun();
    for (const auto& edge : kEdges) {
        if (edge.after_ms > 0) cabinet.Tick(edge.after_ms);
        act(edge.key, edge.down);
    }
    for (int second = 0; second < 1'000 && shell.run.mode == kModePlaying; ++second) {
        if (!shell.run.game.ball_live) {
            act(GameKey::kSpace, true);
            act(GameKey::kSpace, false);
        }
        cabinet.Tick(1'000);
    }
    EXPECT_EQ(shell.run.mode, kModeGameOver);
    std::vector<uint8_t> bytes;
    SerializeTape(shell.run.tape, bytes);
    return bytes;
}

TEST(Pad, WritesTheTapeThatTheKeyboardWrites) {
    std::vector<uint8_t> by_keyboard;
    Codes codes;
    {
        CabinetFixture cabinet;
        by_keyboard = PlayRun(cabinet, [&](GameKey key, bool down) {
            constexpr Key kKeys[] = {Key::kLeft, Key::kRight, Key::kSpace, Key::kP};
            const Key pressed = kKeys[static_cast<int>(key)];
            down ? PressKey(cabinet.main, pressed) : ReleaseKey(cabinet.main, pressed);
        });
        codes = cabinet.TapeCodes();
    }
    // Serves in flight are not on it; what changed during the pause is, the key that was let go first.
    codes.resize(8);
    EXPECT_EQ(codes, (Codes{kInputLeftDown, kInputServe, kInputRightDown, kInputLeftUp, kInputLeftDown,
                            kInputRightUp, kInputLeftUp, kInputLeftDown}));
    for (const bool by_stick : {false, true}) {
        PadCabinet cabinet;
        cabinet.Plug();
        int left = 0, right = 0;
        const auto by_pad = PlayRun(cabinet, [&](GameKey key, bool down) {
            constexpr SDL_GameControllerButton kButtons[] = {
                SDL_CONTROLLER_BUTTON_DPAD_LEFT, SDL_CONTROLLER_BUTTON_DPAD_RIGHT, SDL_CONTROLLER_BUTTON_A,
                SDL_CONTROLLER_BUTTON_START};
            if (!by_stick || key == GameKey::kSpace || key == GameKey::kP) {
                return cabinet.Set(kButtons[static_cast<int>(key)], down);
            }
            // One stick has no two sides: the other hand holds a second direction on the cross.
            (key == GameKey::kLeft ? left : right) = down;
            if (key == GameKey::kRight) return cabinet.Set(kButtons[1], down);
            for (const int way : {12'000, 17'000, 15'000, 16'500, 12'000}) {  // a hand that trembles
                if (down) cabinet.Push(-way);
            }
            if (!down) cabinet.Push(-11'000);
        });
        EXPECT_EQ(by_pad, by_keyboard) << (by_stick ? "stick" : "cross");
    }
}

TEST(Pad, FollowsKeyboardAndPadTogetherAndTheHandWithoutTheFocus) {
    PadCabinet cabinet;
    cabinet.Plug();
    cabinet.BeginRun();
    cabinet.Tick(160);
    cabinet.Push(-32'768);
    PressKey(cabinet.main, Key::kLeft);
    cabinet.Push(0);
    cabinet.Tick(16);
    EXPECT_EQ(cabinet.TapeCodes(), (Codes{kInputLeftDown})) << "the key holds it";
    cabinet.Set(SDL_CONTROLLER_BUTTON_DPAD_LEFT, true);
    ReleaseKey(cabinet.main, Key::kLeft);
    cabinet.Tick(16);
    EXPECT_EQ(cabinet.TapeCodes(), (Codes{kInputLeftDown})) << "the cross holds it";
    cabinet.Set(SDL_CONTROLLER_BUTTON_DPAD_LEFT, false);
    EXPECT_EQ(cabinet.TapeCodes(), (Codes{kInputLeftDown, kInputLeftUp}));
    cabinet.Push(32'767);
    cabinet.Push(-32'768);  // through the middle faster than anybody looked
    cabinet.Push(0);
    EXPECT_EQ(cabinet.TapeCodes(), (Codes{kInputLeftDown, kInputLeftUp, kInputRightDown, kInputRightUp,
                                          kInputLeftDown, kInputLeftUp}));

    PretendFocusLost(true);
    cabinet.Tap(SDL_CONTROLLER_BUTTON_A);
    cabinet.Tap(SDL_CONTROLLER_BUTTON_START);
    cabinet.Push(32'767);
    EXPECT_EQ(cabinet.TapeCodes().size(), 7u) << "the paddle alone";
    EXPECT_FALSE(shell.run.game.paused);
    PretendFocusLost(false);
    cabinet.Tap(SDL_CONTROLLER_BUTTON_A);
    EXPECT_EQ(cabinet.TapeCodes().back(), kInputServe);
}

TEST(Pad, IsLookedForWhenADeviceComesAndPausesTheRunWhenItGoes) {
    PadCabinet cabinet;
    const auto settle = [&] {  // long after the last change
        cabinet.own_clock->AdvanceMs(10'000);
        cabinet.Look();
    };
    settle();
    EXPECT_FALSE(TimerRunning(cabinet.main, kPadTimer)) << "nobody is asked while there is none";
    cabinet.Plug();
    settle();
    EXPECT_TRUE(TimerRunning(cabinet.main, kPadTimer));
    cabinet.BeginRun();
    cabinet.Tick(160);
    cabinet.Push(32'767);
    cabinet.Tick(32);
    const uint64_t standstill = shell.run.sim_clock_ms;
    cabinet.Unplug();
    EXPECT_TRUE(shell.run.game.paused);
    EXPECT_EQ(cabinet.Text(1007), "Paused.");
    settle();
    EXPECT_FALSE(TimerRunning(cabinet.main, kPadTimer));
    cabinet.TapKey(Key::kP);
    EXPECT_EQ(cabinet.TapeCodes(), (Codes{kInputRightDown, kInputRightUp})) << "nobody holds it any more";
    EXPECT_EQ(shell.run.tape.events.back().tick_ms, standstill);

    cabinet.Plug();
    cabinet.Tap(SDL_CONTROLLER_BUTTON_START);
    EXPECT_TRUE(shell.run.game.paused) << "one that has come back plays";
    cabinet.Tap(SDL_CONTROLLER_BUTTON_START);
    EXPECT_FALSE(shell.run.game.paused);
}

TEST(Pad, WorksTheWindows) {
    PadCabinet cabinet;
    cabinet.Plug();
    cabinet.Tap(SDL_CONTROLLER_BUTTON_A);
    cabinet.Tap(SDL_CONTROLLER_BUTTON_B);
    EXPECT_TRUE(WindowExists(cabinet.main)) << "it closes tool windows only";
    const struct {
        int x, y;
        int focused;
    } kWay[] = {{0, -1, 1015},
                {1, 0, 1005},
                {1, 0, 1001},
                {0, 1, kControlReport},
                {-1, 0, kHelp},
                {-1, 0, kControlBoard},
                {-1, 0, kControlBoard},
                {0, 1, kControlStatus},
                {0, 1, 1014},
                {0, -1, kControlStatus},
                {0, -1, kControlReport},
                {-1, 0, kHelp}};
    for (const auto& step : kWay) {  // the row's end is its end; Record score is disabled
        cabinet.Push(step.x * 30'000, step.y * 30'000);
        cabinet.Push(0);
        EXPECT_EQ(FocusedControl(cabinet.main), step.focused);
    }
    // A press that the program could not answer reaches nobody.
    shell.driver.begin_check(kControlRecord, "Checking your name...");
    cabinet.pad->Button(SDL_CONTROLLER_BUTTON_A, true);
    SDL_JoystickUpdate();
    cabinet.pad->Button(SDL_CONTROLLER_BUTTON_A, false);
    shell.driver.end_check();
    cabinet.Look();
    EXPECT_FALSE(WindowExists(shell.help));
    PretendFocusLost(true);
    cabinet.Tap(SDL_CONTROLLER_BUTTON_A);
    PretendFocusLost(false);
    EXPECT_FALSE(WindowExists(shell.help)) << "it was meant for another program";
    cabinet.Tap(SDL_CONTROLLER_BUTTON_A);
    EXPECT_TRUE(WindowExists(shell.help));
    cabinet.Tap(SDL_CONTROLLER_BUTTON_B);
    EXPECT_FALSE(WindowExists(shell.help));

    Click(cabinet.main, 1015);
    FocusControl(shell.settings, kMusicVolume);
    const int32_t volume = music_vol;
    cabinet.Tap(SDL_CONTROLLER_BUTTON_DPAD_LEFT);
    EXPECT_EQ(music_vol, volume - 10);
    cabinet.Tap(SDL_CONTROLLER_BUTTON_DPAD_DOWN);
    EXPECT_EQ(FocusedControl(shell.settings), kMusicVolume + 1);
    cabinet.Tap(SDL_CONTROLLER_BUTTON_B);

    // Boxes run a loop of their own; the controller is heard there.
    const auto answer = [&](std::initializer_list<SDL_GameControllerButton> buttons) {
        const auto* next = buttons.begin();
        const WindowId hand = OpenWindow({.title = "Hand"}, [&](WindowId, Message& message) {
            const bool box_is_up = ActiveWindow() == WindowId{0};
            if (message.type == MessageType::kTimer && box_is_up && next != buttons.end()) {
                cabinet.Tap(*next++);
            }
            return false;
        });
        StartTimer(hand, 1, 1);
        const bool answered =
            ShowMessageBox(cabinet.main, "Brickfall", "Pay?", BoxButtons::kOkCancel, BoxIcon::kQuestion);
        DestroyWindow(hand);
        return answered;
    };
    EXPECT_TRUE(answer({SDL_CONTROLLER_BUTTON_A}));
    EXPECT_FALSE(answer({SDL_CONTROLLER_BUTTON_B}));
    // Which of the two stands on the left is the desktop's to say.
    EXPECT_NE(answer({SDL_CONTROLLER_BUTTON_DPAD_LEFT, SDL_CONTROLLER_BUTTON_A}),
              answer({SDL_CONTROLLER_BUTTON_DPAD_RIGHT, SDL_CONTROLLER_BUTTON_A}));
}

}  // namespace
}  // namespace brickfall
