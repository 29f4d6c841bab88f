// paid_desktop.h - a store, the services, the companion and the cabinet, each as on a player's desktop.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "tests/e2e/desktop_robot.h"
#include "tests/support/child_process.h"
#include "tests/support/wallet_fixture.h"

namespace brickfall {

struct PaidDesktop {
    PaidDesktop();
    ~PaidDesktop();
    PaidDesktop(const PaidDesktop&) = delete;
    PaidDesktop& operator=(const PaidDesktop&) = delete;

    // The look-up of a name takes its time, and says that the identity is frozen, until the faults are
    // cleared.
    void FreezeLate();
    int64_t LookUps() const;

    // Plays on, serving whenever the ball rests, until the run is over.
    void LoseTheRun(const std::function<void()>& serve);

    SandboxFixture services;
    TempUserData data;
    JumpingClock clock;
    std::optional<ChildProcess> companion;
};

std::string Text(int control);  // of the main window
bool WaitForStatus(const std::string& text, int seconds = 30);

}  // namespace brickfall
