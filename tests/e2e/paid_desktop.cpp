#include "tests/e2e/paid_desktop.h"

#include <cstdlib>
#include <vector>

#include "cabinet/shell_state.h"
#include "cabinet/startup.h"
#include "platform/automation.h"

namespace brickfall {
namespace {

constexpr char kLookUp[] = "/api/paymail/identity/";

}  // namespace

PaidDesktop::PaidDesktop() {
    ::setenv("BRICKFALL_SANDBOX_CONNECT", services.box.ConnectTo().c_str(), 1);
    ::setenv("BRICKFALL_SANDBOX_CA", services.box.CaFile().c_str(), 1);
    companion.emplace(BRICKFALL_BINARY_DIR "/sandbox/brickfall-companion-window",
                      std::vector<std::string>{"player"});
    companion->ReadUntil("companion ready");
    StartCabinet(data.Path() + "/cabinet", OpenRecordingMidi);
}

PaidDesktop::~PaidDesktop() {
    if (WindowExists(shell.main)) DestroyWindow(shell.main);
    PumpMessages();
}

void PaidDesktop::FreezeLate() {
    sandbox::Fault late;
    late.kind = sandbox::FaultKind::kDelay;
    late.delay_ms = 1'200;
    late.path_contains = kLookUp;
    services.box.AddFault(sandbox::Service::kPaymail, late);
    services.Reply(sandbox::Service::kPaymail, kLookUp, 200, R"({"frozen":true})");
}

int64_t PaidDesktop::LookUps() const { return services.Asked(sandbox::Service::kPaymail, kLookUp); }

void PaidDesktop::LoseTheRun(const std::function<void()>& serve) {
    for (int life = 0; life < 20 && shell.run.mode == kModePlaying; ++life) {
        serve();
        for (int jump = 0; jump < 60 && shell.run.mode == kModePlaying && shell.run.game.ball_live; ++jump) {
            clock.JumpMs(1'000);
            RunFor(40);
        }
    }
}

std::string Text(int control) { return ControlText(shell.main, control); }

bool WaitForStatus(const std::string& text, int seconds) {
    return WaitFor(
        "status \"" + text + "\", not \"" + Text(1007) + "\"",
        [&text] { return Text(1007).starts_with(text); }, seconds);
}

}  // namespace brickfall
