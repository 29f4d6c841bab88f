#include "cabinet/pad_driver.h"

#include <cstdint>
#include <utility>

#include "base/clock.h"
#include "cabinet/shell_state.h"
#include "platform/desktop.h"
#include "platform/focus.h"
#include "platform/keyboard.h"

namespace brickfall {
namespace {

constexpr int kPollMs = 8;  // twice a step of the run
// A new device is named before it may be opened: the desktop gives the right to it a little later.
constexpr uint64_t kLookMs = 2'000;

struct Pads {
    std::unique_ptr<Gamepads> pads;
    std::unique_ptr<FolderWatch> watch;
    uint64_t look_until_ms = 0;
};
Pads& state = *new Pads;

bool RunIsOn() { return shell.run.mode == kModePlaying && !shell.run.game.paused; }

void OnGone() { PauseForWindow(shell.run, shell.driver.run); }

// The paddle follows the hand whoever has the focus, as it does with the keyboard; with both it follows
// either.
void OnDirectionInRun(GameKey key, bool is_down) {
    if (is_down) return OnKeyDown(shell.run, shell.driver.run, key, /*is_repeat=*/false);
    if (!KeyIsDown(key == GameKey::kLeft ? Key::kLeft : Key::kRight)) {
        OnKeyUp(shell.run, shell.driver.run, key);
    }
}

// True when the run has taken it.
bool OfferToRun(const PadEvent& event) {
    const bool is_down = event.kind == PadEvent::Kind::kDown;
    const bool is_in_front = ActiveWindow() == shell.main;
    const auto strike = [&](GameKey key) {
        if (is_down) OnKeyDown(shell.run, shell.driver.run, key, /*is_repeat=*/false);
        return true;
    };
    if (event.button == PadButton::kStart) return !is_in_front || strike(GameKey::kP);
    if (!RunIsOn()) return false;
    if (event.button == PadButton::kLeft) OnDirectionInRun(GameKey::kLeft, is_down);
    if (event.button == PadButton::kRight) OnDirectionInRun(GameKey::kRight, is_down);
    if (!is_in_front) return false;
    return event.button != PadButton::kA || strike(GameKey::kSpace);
}

void WorkWindow(PadButton button) {
    switch (button) {
        case PadButton::kLeft:
            return MoveFocus(Direction::kLeft);
        case PadButton::kRight:
            return MoveFocus(Direction::kRight);
        case PadButton::kUp:
            return MoveFocus(Direction::kUp);
        case PadButton::kDown:
            return MoveFocus(Direction::kDown);
        case PadButton::kA:
            return PressFocused();
        case PadButton::kB:
            return CloseActive();
        case PadButton::kStart:
            return;
    }
}

void OnPadEvent(const PadEvent& event) {
    if (event.kind == PadEvent::Kind::kGone) return OnGone();
    if (!OfferToRun(event) && event.kind == PadEvent::Kind::kDown) WorkWindow(event.button);
}

void LookForPads() {
    state.look_until_ms = TickMs() + kLookMs;
    StartTimer(shell.main, kPadTimer, kPollMs);
    OnPadTimer();
}

}  // namespace

void StartPads(std::unique_ptr<Gamepads> pads, const std::string& device_folder) {
    if (pads == nullptr) return;
    state.pads = std::move(pads);
    state.watch = WatchFolder(device_folder, LookForPads);
    LookForPads();
}

void StopPads() {
    StopTimer(shell.main, kPadTimer);
    state = Pads();
}

void OnPadTimer() {
    if (state.pads == nullptr) return;
    for (const PadEvent& event : state.pads->Poll()) OnPadEvent(event);
    if (!state.pads->AnyThere() && TickMs() >= state.look_until_ms) StopTimer(shell.main, kPadTimer);
}

void DropPadPresses() {
    if (state.pads == nullptr) return;
    for (const PadEvent& event : state.pads->Poll()) {
        if (event.kind == PadEvent::Kind::kGone) OnGone();
    }
}

bool PadHolds(GameKey key) {
    if (state.pads == nullptr) return false;
    if (key == GameKey::kLeft) return state.pads->Holds(PadButton::kLeft);
    return key == GameKey::kRight && state.pads->Holds(PadButton::kRight);
}

}  // namespace brickfall
