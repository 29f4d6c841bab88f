// The controllers that SDL knows a layout of. Of SDL only its joystick layer runs: no window, no sound, no
// thread, no signal handler.
#include <SDL.h>

#include <bitset>
#include <cstddef>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>

#include "platform/gamepad.h"

namespace brickfall {
namespace {

// Of the stick's 32,767. A direction begins beyond the first and ends within the second, so that a stick that
// trembles about either gives one edge, and one that does not quite come back to the middle gives none.
constexpr int kDeflected = 16'384;
constexpr int kReleased = 11'469;

using Buttons = std::bitset<kPadButtonCount>;

constexpr std::size_t Index(PadButton button) { return static_cast<std::size_t>(button); }

std::optional<PadButton> ButtonOf(int button) {
    switch (button) {
        case SDL_CONTROLLER_BUTTON_DPAD_LEFT:
            return PadButton::kLeft;
        case SDL_CONTROLLER_BUTTON_DPAD_RIGHT:
            return PadButton::kRight;
        case SDL_CONTROLLER_BUTTON_DPAD_UP:
            return PadButton::kUp;
        case SDL_CONTROLLER_BUTTON_DPAD_DOWN:
            return PadButton::kDown;
        case SDL_CONTROLLER_BUTTON_A:
            return PadButton::kA;
        case SDL_CONTROLLER_BUTTON_B:
            return PadButton::kB;
        case SDL_CONTROLLER_BUTTON_START:
            return PadButton::kStart;
        default:
            return std::nullopt;
    }
}

struct Closer {
    void operator()(SDL_GameController* controller) const { SDL_GameControllerClose(controller); }
};

struct Pad {
    std::unique_ptr<SDL_GameController, Closer> controller;
    Buttons pressed;
    Buttons stick;
    int x = 0;
    int y = 0;

    // Up and down are for windows alone, where a stick that is pushed aside means its side.
    void TakeStick() {
        const auto follow = [this](PadButton button, int value, bool may_begin) {
            const bool was = stick[Index(button)];
            stick[Index(button)] = was ? value > kReleased : may_begin && value > kDeflected;
        };
        const bool is_upright = std::abs(y) > std::abs(x);
        follow(PadButton::kLeft, -x, true);
        follow(PadButton::kRight, x, true);
        follow(PadButton::kUp, -y, is_upright);
        follow(PadButton::kDown, y, is_upright);
    }
};

class SdlGamepads : public Gamepads {
  public:
    SdlGamepads() = default;
    ~SdlGamepads() override {
        pads_.clear();
        SDL_QuitSubSystem(SDL_INIT_GAMECONTROLLER);
    }
    SdlGamepads(const SdlGamepads&) = delete;
    SdlGamepads& operator=(const SdlGamepads&) = delete;

    std::vector<PadEvent> Poll() override {
        std::vector<PadEvent> events;
        SDL_PumpEvents();
        SDL_Event event;
        while (SDL_PeepEvents(&event, 1, SDL_GETEVENT, SDL_FIRSTEVENT, SDL_LASTEVENT) == 1) {
            Take(event, events);
        }
        return events;
    }

    bool AnyThere() const override { return !pads_.empty(); }
    bool Holds(PadButton button) const override { return held_[Index(button)]; }

  private:
    void Take(const SDL_Event& event, std::vector<PadEvent>& events) {
        switch (event.type) {
            case SDL_CONTROLLERDEVICEADDED:
                return Open(event.cdevice.which);
            case SDL_CONTROLLERDEVICEREMOVED:
                if (pads_.erase(event.cdevice.which) == 0) return;
                held_ = HeldByAny();
                events.push_back({PadEvent::Kind::kGone});
                return;
            case SDL_CONTROLLERBUTTONDOWN:
            case SDL_CONTROLLERBUTTONUP: {
                const std::optional<PadButton> button = ButtonOf(event.cbutton.button);
                const auto pad = pads_.find(event.cbutton.which);
                if (!button || pad == pads_.end()) return;
                pad->second.pressed[Index(*button)] = event.type == SDL_CONTROLLERBUTTONDOWN;
                break;
            }
            case SDL_CONTROLLERAXISMOTION: {
                const auto pad = pads_.find(event.caxis.which);
                if (pad == pads_.end()) return;
                if (event.caxis.axis == SDL_CONTROLLER_AXIS_LEFTX) pad->second.x = event.caxis.value;
                if (event.caxis.axis == SDL_CONTROLLER_AXIS_LEFTY) pad->second.y = event.caxis.value;
                pad->second.TakeStick();
                break;
            }
            default:
                return;
        }
        TellEdges(events);
    }

    void Open(int device) {
        SDL_GameController* const controller = SDL_GameControllerOpen(device);
        if (controller == nullptr) return;  // gone again, or not for this user
        const SDL_JoystickID id = SDL_JoystickInstanceID(SDL_GameControllerGetJoystick(controller));
        pads_[id].controller.reset(controller);
    }

    Buttons HeldByAny() const {
        Buttons held;
        for (const auto& [id, pad] : pads_) held |= pad.pressed | pad.stick;
        return held;
    }

    // What ends before what begins: a stick goes through its middle.
    void TellEdges(std::vector<PadEvent>& events) {
        const Buttons before = held_;
        held_ = HeldByAny();
        const auto tell = [&events](PadEvent::Kind kind, const Buttons& buttons) {
            for (std::size_t i = 0; i < buttons.size(); ++i) {
                if (buttons[i]) events.push_back({kind, static_cast<PadButton>(i)});
            }
        };
        tell(PadEvent::Kind::kUp, before & ~held_);
        tell(PadEvent::Kind::kDown, held_ & ~before);
    }

    std::map<SDL_JoystickID, Pad> pads_;
    Buttons held_;
};

}  // namespace

std::unique_ptr<Gamepads> OpenGamepads() {
    SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");
    // Whose focus the windows have is the toolkit's to say: SDL has none of them.
    SDL_SetHint(SDL_HINT_JOYSTICK_ALLOW_BACKGROUND_EVENTS, "1");
    // The kernel's drivers alone are read, and nothing is written to a controller.
    SDL_SetHint(SDL_HINT_JOYSTICK_HIDAPI, "0");
    if (SDL_InitSubSystem(SDL_INIT_GAMECONTROLLER) != 0) return nullptr;
    return std::make_unique<SdlGamepads>();
}

}  // namespace brickfall
