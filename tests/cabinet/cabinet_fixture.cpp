#include "tests/cabinet/cabinet_fixture.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "base/workers.h"
#include "cabinet/shell_driver.h"
#include "cabinet/shell_state.h"
#include "cabinet/ui_settings.h"
#include "wallet/store/app_binds.h"

namespace brickfall {

void PretendLargeMonitor() { PretendMonitors({{{0, 0, 3840, 2160}, {0, 0, 3840, 2120}}}); }

void Click(WindowId window, int control) {
    ClickControl(window, control);
    PumpMessages();
}

CabinetFixture::CabinetFixture(Wallet with_wallet) {
    if (with_wallet == Wallet::kBound) {
        wallet.emplace();
    } else {
        data.emplace();
        own_clock.emplace();
        ResetBindingForTest();
        BindAtStart("/cabinet", "Brickfall");
    }
    SetInlineWorkers(true);
    LoadUiSettings();
    main = OpenMainWindow();
    ShowWindow(main);
    PumpMessages();
}

CabinetFixture::~CabinetFixture() {
    for (const Key key : {Key::kLeft, Key::kRight}) ReleaseKey(main, key);  // a test may end with one held
    DestroyWindow(main);
    PumpMessages();
    SetInlineWorkers(false);
    PretendLargeMonitor();
}

void CabinetFixture::Resize(Size client) {
    const Size frame = FrameSize(main);
    ResizeWindow(main, {client.w + frame.w, client.h + frame.h});
    PumpMessages();
}

void CabinetFixture::BeginRun() {
    StartRun(shell.run, shell.driver.run);
    PumpMessages();
}

void CabinetFixture::Tick(int64_t milliseconds) {
    (wallet ? wallet->clock : *own_clock).AdvanceMs(milliseconds);
    FireTimer(main, kHeartbeatTimer);
    PumpMessages();
}

void CabinetFixture::Post(int number, int64_t value, std::unique_ptr<Payload> payload) const {
    EXPECT_TRUE(PostWindowMessage(main, number, value, std::move(payload)));
    PumpMessages();
}

void CabinetFixture::TapKey(Key key) const {
    PressKey(main, key);
    ReleaseKey(main, key);
}

Codes CabinetFixture::TapeCodes() const {
    Codes codes;
    for (const InputEvent& event : shell.run.tape.events) codes.push_back(event.code);
    return codes;
}

Color PixelShown(WindowId window, int x, int y) {
    const Image shown = GrabWindow(window);
    const Size client = ClientSize(window);
    return PixelOf(shown, x * shown.w / client.w, y * shown.h / client.h);
}

}  // namespace brickfall

int main(int count, char** arguments) {
    ::setenv("QT_QPA_PLATFORM", "offscreen", /*overwrite=*/0);
    ::testing::InitGoogleTest(&count, arguments);
    const brickfall::Platform platform(count, arguments);
    brickfall::PretendLargeMonitor();
    return RUN_ALL_TESTS();
}
