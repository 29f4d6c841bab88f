// cabinet_fixture.h - the whole main window, off screen, on a monitor of 3840 by 2160 unless the test
// pretends another before, and on a store and services of its own. Workers run inline, so that a click's
// whole effect is there once messages are pumped.
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "cabinet/shell.h"
#include "cabinet/shell_state.h"
#include "platform/automation.h"
#include "tests/support/wallet_fixture.h"

namespace brickfall {

struct CabinetFixture {
    enum class Wallet { kNone, kBound };

    explicit CabinetFixture(Wallet with_wallet = Wallet::kNone);
    ~CabinetFixture();
    CabinetFixture(const CabinetFixture&) = delete;
    CabinetFixture& operator=(const CabinetFixture&) = delete;

    void Resize(Size client);
    void BeginRun();                  // as an enter payment does
    void Tick(int64_t milliseconds);  // time passes, then the heartbeat fires
    std::string Text(int control) const { return ControlText(main, control); }
    std::vector<int> TapeCodes() const;

    SandboxFixture services;
    std::optional<WalletFixture> wallet;
    std::optional<TempUserData> data;
    std::optional<ManualClock> own_clock;
    WindowId main = 0;
};

void PrintTo(const Color& color, std::ostream* out);
void PrintTo(const Rect& rect, std::ostream* out);

Color PixelOf(const Image& image, int x, int y);

// What a window shows at a place within it, in the desktop's units, at any density of the screen.
Color PixelShown(WindowId window, int x, int y);

}  // namespace brickfall
