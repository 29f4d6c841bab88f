// gamepad.h - game controllers, all of them together as one with a few buttons. Main thread only.
#pragma once

#include <memory>
#include <vector>

namespace brickfall {

// The directions are those of the cross and of the left stick.
enum class PadButton { kLeft, kRight, kUp, kDown, kA, kB, kStart };
inline constexpr int kPadButtonCount = 7;

struct PadEvent {
    // A controller that goes away takes its buttons with it: they are up, and no kUp tells of them.
    enum class Kind { kDown, kUp, kGone };
    Kind kind;
    PadButton button = PadButton::kLeft;
    bool operator==(const PadEvent&) const = default;
};

class Gamepads {
  public:
    virtual ~Gamepads() = default;  // lets go of them

    // What has happened since the last call, in its order, a short press too. Also finds controllers that
    // have come; without a call nothing is asked of the machine.
    virtual std::vector<PadEvent> Poll() = 0;
    virtual bool AnyThere() const = 0;
    virtual bool Holds(PadButton button) const = 0;
};

// The folder that changes whenever an input device comes, goes or becomes readable.
inline constexpr char kInputDeviceFolder[] = "/dev/input";

// The machine's; nullptr, without a word, where they cannot be asked for.
std::unique_ptr<Gamepads> OpenGamepads();

}  // namespace brickfall
