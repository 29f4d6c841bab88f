#include "cabinet/shell.h"

#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/clock.h"
#include "base/text.h"
#include "board/board_load.h"
#include "cabinet/board_window.h"
#include "cabinet/box_look.h"
#include "cabinet/controls.h"
#include "cabinet/explanation_line.h"
#include "cabinet/face_drawing.h"
#include "cabinet/help_window.h"
#include "cabinet/images.h"
#include "cabinet/pad_driver.h"
#include "cabinet/private_messages.h"
#include "cabinet/report_window.h"
#include "cabinet/settings_window.h"
#include "cabinet/shell_driver.h"
#include "cabinet/shell_labels.h"
#include "cabinet/shell_layout.h"
#include "cabinet/shell_state.h"
#include "cabinet/sound.h"
#include "cabinet/theme.h"
#include "cabinet/tool_window.h"
#include "cabinet/ui_settings.h"
#include "cabinet/update_check.h"
#include "cabinet/well.h"
#include "cabinet/window_placement.h"
#include "cabinet/workers.h"
#include "deployment/deployment.h"
#include "platform/desktop.h"
#include "wallet/events/wallet_events.h"
#include "wallet/link/status_refresh.h"

namespace brickfall {

namespace {

constexpr uint64_t kRecordBlinkMs = 280;

// ---- Tool windows.

// Brings a tool window beside the main window and shows it.
void ShowBeside(WindowId tool_window) {
    const Rect rect = WindowRect(tool_window);
    MoveWindow(tool_window,
               PlaceBeside(WindowRect(shell.main), MonitorOf(shell.main).work, {rect.w, rect.h}));
    ShowWindow(tool_window);
}

// Brings an open window to the front, or makes it: where the desktop likes, or beside the main window.
void OpenOnce(WindowId& slot, WindowId (*open)(WindowId owner), bool beside = false) {
    PauseForWindow(shell.run, shell.driver.run);
    if (WindowExists(slot)) return BringToFront(slot);
    slot = open(shell.main);
    if (beside) return ShowBeside(slot);
    ShowWindow(slot);
}

// ---- Messages.

void OnCommand(int id);

// As a press of the button, while a score waits for it.
void RecordWithoutButton() {
    if (shell.run.mode == kModeGameOver && !shell.run.busy) OnCommand(kControlRecord);
}

// The wallet core's progress texts go to the status line, from any thread; from this one at once, so that
// what a flow says afterwards stands.
void InstallLogHook(WindowId main) {
    const std::lock_guard lock(wallet_sink_mutex);
    wallet_log_hook = [main, main_thread = std::this_thread::get_id()](std::string_view text) {
        if (text.empty()) return;
        if (std::this_thread::get_id() == main_thread) return SetStatus(text);
        PostWindowMessage(main, kMsgStatusText, 0, MakePayload(std::string(text)));
    };
}

// The tool windows, which it owns, show the same.
void SetIcons(WindowId window) {
    std::vector<Image> icons;
    for (const int side : {16, 32, 48}) {
        icons.push_back(MakeIcon(side));
        if (icons.back().Empty()) icons.back() = StoredIcon(side);
    }
    icons.push_back(StoredIcon(256));  // larger than the logo is kept
    SetWindowIcons(window, icons);
}

bool WellProc(WindowId, Message& message) {
    switch (message.type) {
        case MessageType::kPaint:
            PaintWell(*message.canvas, WellOf(shell.run), shell.cell, TickMs(), shell.fee, shell.eyes,
                      {.serve = shell.runs == 1, .record = shell.runs == 1});
            return true;
        case MessageType::kTextStyle:
            message.style = {kMutedColor, kBgColor, /*hand=*/true};
            return true;
        case MessageType::kCommand:
            CopyText(shell.run.record_txid);
            SetStatus("Transaction id copied.");
            return true;
        case MessageType::kClick:
            if (BannerRect(WellOf(shell.run), shell.cell).Contains(message.at)) RecordWithoutButton();
            return true;
        default:
            return false;
    }
}

void OnCreate(WindowId window) {
    shell.main = window;
    shell.driver = MakeDriver();
    shell.eyes = ReadEyeSettings();
    SetCaretBlinking(!shell.eyes.steady);
    InstallLogHook(window);
    MakeTheme();
    DressMessageBoxes();
    DressWindow(window);
    SetIcons(window);
    shell.well = OpenChild(window, {kWellAt.x, kWellAt.y, 740, 520}, kBgColor, WellProc);
    RefreshWell();
    CreateMainControls(window);
    CreateText(shell.well, kControlTxid, {}, "", theme.font_small);
    SetAccessibleControlName(window, kControlSettings, "Settings");
    EnableWindowControl(window, kControlRecord, false);
    RefreshWalletLabels();
    RefreshPotLabel();
    StartPotRefresh();
    SetControlText(window, kControlVersion, VersionText(shell.update_available));
    StartUpdateWorker(window);
    RefreshLayout();
}

void OnDestroy(WindowId window) {
    SaveWindowPlacement({NormalRect(window), IsMaximized(window), IsMinimized(window)});
    StopTimer(window, kHeartbeatTimer);
    StopTimer(window, kStatusTimer);
    StopPads();
    StopSound();
    DropTheme();
    DropLogo();
    BuildFaceBitmaps({});
    QuitMessageLoop(0);
}

void PaintMain(Canvas& canvas, Size client) {
    canvas.Fill({0, 0, client.w, client.h}, kBgColor);
    canvas.Fill({0, 0, client.w, kHeaderBottom}, kHeaderColor);
    DrawLogo(canvas, 12, 68);
}

// A run keeps the cells that it began with: one that began on the full screen may be taller than any framed
// window, and its paddle would be out of sight.
void ToggleFullScreen() {
    const bool on = !IsFullScreen(shell.main);
    if (!on && shell.run.mode == kModePlaying && !RunFitsWorkArea()) {
        return SetStatus("Finish this run first.");
    }
    SetFullScreen(shell.main, on);
    SaveFullScreen(on);
}

TextStyle StyleOf(int id) {
    if (IsInHeader(id)) return {id == kControlMaker ? kMutedColor : kTextColor, kHeaderColor};
    switch (id) {
        case kControlPotLine:
            return {kAccentColor, kBgColor};
        case kControlStatus:
            return {StatusColor(), kBgColor, /*hand=*/true};
        case kControlExplanation:
        case kControlBalanceLine:
            return {kMutedColor, kBgColor};
        case kControlVersion:
            return {shell.build_latest < 0   ? kMutedColor
                    : shell.update_available ? kWarnColor
                                             : kAccentColor,
                    kBgColor, shell.update_available};
        default:
            return {kTextColor, kBgColor};
    }
}

ButtonLook LookOf(int id) {
    ButtonLook look;
    if (IsInHeader(id)) look.background = kHeaderColor;
    look.blink = !shell.eyes.steady && id == kControlRecord && shell.run.record_pending &&
                 shell.run.mode == kModeGameOver && BlinkOn(TickMs(), kRecordBlinkMs);
    return look;
}

// What has been copied stands out once more.
void CopyStatus() {
    const std::string status = ControlText(shell.main, kControlStatus);
    if (status.empty()) return;
    CopyText(status);
    SetStatus(status);
}

// What a failure that comes of this press will be about.
void NoteAsked(int id) {
    if (shell.run.busy) return;
    if (id == kControlConnect) shell.asked.reset();
    if (id == kControlPlay) shell.asked = kPayEnter;
    if (id == kControlRecord) shell.asked = kPayRecord;
}

void OnCommand(int id) {
    NoteAsked(id);
    switch (id) {
        case kControlConnect:
            return OnConnectClicked(shell.run, shell.driver);
        case kControlUnbind:
            return OnUnbindClicked(shell.run, shell.driver);
        case kControlPlay:
            return OnPlayClicked(shell.run, shell.driver);
        case kControlRecord:
            return OnRecordClicked(shell.run, shell.driver);
        case kControlBoard:
            PauseForWindow(shell.run, shell.driver.run);
            return StartBoardLoad();
        case kControlHelp:
            return OpenOnce(shell.help, OpenHelpWindow);
        case kControlSettings:
            return OpenOnce(shell.settings, OpenSettingsWindow);
        case kControlReport:
            return OpenOnce(shell.report, OpenReportWindow, /*beside=*/true);
        case kControlCloseMain:
            return DestroyWindow(shell.main);
        case kControlStatus:
            return CopyStatus();
        case kControlVersion:
            if (shell.update_available) OpenAddress(kDownloadPageUrl);
            return;
        default:
            return;
    }
}

void ShowBoard(std::unique_ptr<BoardResult> result) {
    BoardView& view = shell.board_view;
    view.rows = std::move(result->rows);
    view.best = std::move(result->best);
    view.has_best = result->has_best;
    view.week_label = std::move(result->week_label);
    view.message = view.rows.empty() ? std::move(result->message) : std::string();
    UpdateMyFaceKey(view.my_key);
    BuildFaceBitmaps(std::move(result->faces));
    DestroyWindow(shell.board);
    shell.board = OpenBoardWindow(shell.main, view);
    ShowBeside(shell.board);
    SetStatus(view.message.empty() ? std::string_view("Weekly board loaded.") : view.message);
}

void OnBoardDone(std::unique_ptr<BoardResult> result) {
    shell.board_busy = false;
    RefreshExplanation();  // a status of something else may stand
    EnableWindowControl(shell.main, kControlBoard, !shell.run.busy);
    if (result != nullptr) ShowBoard(std::move(result));
    if (std::exchange(shell.board_again, false)) StartBoardLoad();
}

void OnUpdateDone(int64_t value) {
    shell.build_latest = static_cast<int32_t>(value - 1);
    shell.update_available = shell.build_latest > kBuildNumber;
    SetControlText(shell.main, kControlVersion, VersionText(shell.update_available));
    SetTextClickable(shell.main, kControlVersion, shell.update_available);
    FitVersionLine();
    InvalidateControl(shell.main, kControlVersion);
    if (shell.update_available &&
        ShowMessageBox(shell.main, "Brickfall update", UpdateQuestion(shell.build_latest), BoxButtons::kYesNo,
                       BoxIcon::kWarning)) {
        OpenAddress(kDownloadPageUrl);
    }
}

ResultText TakeText(Message& message) {
    if (message.payload == nullptr) return nullptr;
    return std::make_unique<std::string>(TakePayload<std::string>(message.payload));
}

// Approved in another program's window: the player goes on here.
void OnConnectDone(ResultText result) {
    const bool approved = result != nullptr && result->starts_with("success");
    OnConnectResult(shell.run, shell.driver, std::move(result));
    if (approved) BringToFront(shell.main);
}

void OnPosted(Message& message) {
    switch (message.id) {
        case kMsgConnectDone:
            return OnConnectDone(TakeText(message));
        case kMsgStatusText:
            return SetStatus(TakePayload<std::string>(message.payload));
        case kMsgPayDone:
            return OnPayResult(shell.run, shell.driver, static_cast<PayKind>(message.value),
                               TakeText(message));
        case kMsgPotDone: {
            PotResult pot = TakePayload<PotResult>(message.payload);
            shell.pot_sats = pot.sats;
            shell.pot_error = std::move(pot.error);
            return RefreshPotLabel();
        }
        case kMsgBoardDone:
            return OnBoardDone(TakePayload<std::unique_ptr<BoardResult>>(message.payload));
        case kMsgBalanceDone: {
            auto balance = TakePayload<StatusResult>(message.payload);
            shell.coins = std::move(balance.coins);
            RefreshPlayer();  // the refresh may have found the player's name
            SetLine(kControlBalanceLine, balance.chain_ok
                                             ? "Pouch balance:  " + FormatBsv(balance.balance) + " BSV"
                                             : "Pouch balance:  (WhatsOnChain miss)");
            shell.balance_missed = !balance.chain_ok;
            return RefreshExplanation();
        }
        case kMsgUpdateDone:
            return OnUpdateDone(message.value);
        default:
            return;
    }
}

}  // namespace

bool MainWindowProc(WindowId window, Message& message) {
    switch (message.type) {
        case MessageType::kCreate:
            OnCreate(window);
            return true;
        case MessageType::kDestroy:
            OnDestroy(window);
            return true;
        case MessageType::kSize:
            RefreshLayout();
            InvalidateWindow(window);
            InvalidateWindow(shell.well);
            return true;
        case MessageType::kMoveEnd:
            SaveWindowPlacement({NormalRect(window), IsMaximized(window), IsMinimized(window)});
            return true;
        case MessageType::kPaint:
            PaintMain(*message.canvas, message.size);
            return true;
        case MessageType::kKeyDown:
            if (message.key == Key::kF11 || message.key == Key::kReturn) {
                if (message.is_repeat) return true;
                message.key == Key::kF11 ? ToggleFullScreen() : RecordWithoutButton();
                return true;
            }
            OnKeyDown(shell.run, shell.driver.run, KeyOfGame(message.key), message.is_repeat);
            return shell.run.mode == kModePlaying;
        case MessageType::kKeyUp:
            if (!PadHolds(KeyOfGame(message.key))) {
                OnKeyUp(shell.run, shell.driver.run, KeyOfGame(message.key));
            }
            return true;
        case MessageType::kTimer:
            if (message.id == kHeartbeatTimer) OnTimer(shell.run, shell.driver.run);
            if (message.id == kStatusTimer) OnStatusTimer();
            if (message.id == kPadTimer) OnPadTimer();
            if (message.id == kSecondsTimer) RefreshExplanation();
            return true;
        case MessageType::kCommand:
            OnCommand(message.id);
            return true;
        case MessageType::kPosted:
            OnPosted(message);
            return true;
        case MessageType::kTextStyle:
            message.style = StyleOf(message.id);
            return true;
        case MessageType::kPaintButton:
            PaintButton(window, message, LookOf(message.id));
            return true;
        default:
            return false;
    }
}

WindowId OpenMainWindow() {
    shell = Shell();
    return OpenWindow(
        {.title = "Brickfall", .size = {kDefaultWindowW, kDefaultWindowH}, .background = kBgColor},
        MainWindowProc);
}

}  // namespace brickfall
