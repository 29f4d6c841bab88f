#include "cabinet/shell_driver.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

#include "board/local_scores.h"
#include "cabinet/pad_driver.h"
#include "cabinet/report_window.h"
#include "cabinet/shell_labels.h"
#include "cabinet/shell_layout.h"
#include "cabinet/shell_state.h"
#include "cabinet/sound.h"
#include "cabinet/ui_settings.h"
#include "cabinet/well.h"
#include "cabinet/workers.h"

namespace brickfall {
namespace {

bool AnyToolWindowOpen() {
    const WindowId tools[] = {shell.settings, shell.help, shell.board, shell.report};
    return std::any_of(std::begin(tools), std::end(tools), WindowExists);
}

Key PlatformKey(GameKey key) { return key == GameKey::kLeft ? Key::kLeft : Key::kRight; }

// The Send button of the report window stands for the one that opens it.
void BeginCheck(int control, std::string_view text) {
    shell.status_before_check = ControlText(shell.main, kControlStatus);
    SetStatus(text);
    const bool is_report = control == kControlReport && WindowExists(shell.report);
    BeginWait(is_report ? shell.report : shell.main, is_report ? kControlSendReport : control);
}

void EndCheck() {
    EndWait();
    DropPadPresses();
    SetStatus(shell.status_before_check);
}

}  // namespace

GameKey KeyOfGame(Key key) {
    switch (key) {
        case Key::kLeft:
            return GameKey::kLeft;
        case Key::kRight:
            return GameKey::kRight;
        case Key::kSpace:
            return GameKey::kSpace;
        case Key::kP:
            return GameKey::kP;
        default:
            return GameKey::kOther;
    }
}

// Called at every frame.
void RefreshWell() {
    InvalidateWindow(shell.well);
    RefreshFee();
    RefreshTxid();
    std::string spoken = SpokenWell(WellOf(shell.run));
    if (spoken == shell.spoken_well) return;
    SetAccessibleWindowName(shell.well, "Play field", spoken);
    shell.spoken_well = std::move(spoken);
}

FlowDriver MakeDriver() {
    FlowDriver driver;
    driver.run.set_status = SetStatus;
    driver.run.enable_control = [](int id, bool on) { EnableWindowControl(shell.main, id, on); };
    driver.run.invalidate_well = RefreshWell;
    driver.run.invalidate_record_button = [] { InvalidateControl(shell.main, kControlRecord); };
    driver.run.refresh_layout = RefreshLayout;
    driver.run.start_heartbeat = [] {
        ++shell.runs;
        StartTimer(shell.main, kHeartbeatTimer, static_cast<int>(kTickMs));
    };
    driver.run.focus_main = [] { FocusWindow(shell.main); };
    driver.run.main_has_focus = [] { return HasFocus(shell.main); };
    driver.run.any_tool_window_open = AnyToolWindowOpen;
    driver.run.play_effect = PlayEffect;
    driver.run.record_local_score = [](const std::string& txid) {
        RecordLocalScore(ui_doc, shell.run.final_score, txid, [] { SaveUiSettings(); });
    };
    driver.run.key_down = [](GameKey key) { return KeyIsDown(PlatformKey(key)) || PadHolds(key); };
    driver.confirm = [](std::string_view title, std::string_view question) {
        return ShowMessageBox(shell.main, title, question, BoxButtons::kOkCancel, BoxIcon::kQuestion);
    };
    driver.begin_check = BeginCheck;
    driver.end_check = EndCheck;
    driver.refresh_wallet_labels = RefreshWalletLabels;
    driver.start_pot_refresh = StartPotRefresh;
    driver.start_board_load = StartBoardLoad;
    driver.post_connect_done = [main = shell.main](ResultText result) {
        PostConnectDone(main, std::move(result));
    };
    driver.post_pay_done = [main = shell.main](PayKind kind, ResultText result) {
        PostPayDone(main, kind, std::move(result));
    };
    return driver;
}

}  // namespace brickfall
