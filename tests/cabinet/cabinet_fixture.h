// cabinet_fixture.h - the whole main window, off screen, on a monitor of 3840 by 2160 unless the test
// pretends another before, and on a store and services of its own. Workers run inline, so that a click's
// whole effect is there once messages are pumped.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cabinet/shell.h"
#include "cabinet/shell_state.h"
#include "platform/automation.h"
#include "tests/support/pixels.h"
#include "tests/support/wallet_fixture.h"

namespace brickfall {

using Codes = std::vector<int>;

// Off screen, at any density, the real one would be too small for the windows.
void PretendLargeMonitor();

void Click(WindowId window, int control);  // and all that it brings about

// What a window shows at a place within it, in the desktop's units, at any density of the screen.
Color PixelShown(WindowId window, int x, int y);

struct CabinetFixture {
    enum class Wallet { kNone, kBound };

    explicit CabinetFixture(Wallet with_wallet = Wallet::kNone);
    ~CabinetFixture();
    CabinetFixture(const CabinetFixture&) = delete;
    CabinetFixture& operator=(const CabinetFixture&) = delete;

    void Resize(Size client);
    void BeginRun();                  // as an enter payment does
    void Tick(int64_t milliseconds);  // time passes, then the heartbeat fires
    void Post(int number, int64_t value = 0, std::unique_ptr<Payload> payload = nullptr) const;
    void Click(int control) const { brickfall::Click(main, control); }
    void TapKey(Key key) const;
    std::string Text(int control) const { return ControlText(main, control); }
    Codes TapeCodes() const;

    SandboxFixture services;
    std::optional<WalletFixture> wallet;
    std::optional<TempUserData> data;
    std::optional<ManualClock> own_clock;
    WindowId main = 0;
};

}  // namespace brickfall
