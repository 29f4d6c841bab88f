#include "cabinet/shell.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "base/clock.h"
#include "base/text.h"
#include "board/board_load.h"
#include "cabinet/controls.h"
#include "cabinet/face_drawing.h"
#include "cabinet/help_window.h"
#include "cabinet/images.h"
#include "cabinet/report_window.h"
#include "cabinet/settings_window.h"
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
#include "wallet/app_binds.h"
#include "wallet/balance_cache.h"
#include "wallet/connect_handshake.h"
#include "wallet/ov_pouch_wallet.h"
#include "wallet/status_refresh.h"

namespace brickfall {

Shell& shell = *new Shell;

namespace {

constexpr int kSmallestCell = 18;
constexpr Size kSmallestWindow = {1200, 1040};
constexpr uint64_t kRecordBlinkMs = 280;
constexpr Point kWellAt = {16, 178};

enum class ControlKind { kText, kButton };

struct ControlRow {
    int id;
    ControlKind kind;
    Rect rect;  // at creation; the layout moves it
    const char* text;
    const Font Theme::*font;
};

constexpr ControlRow kControls[] = {
    {kControlTitle, ControlKind::kText, {96, 14, 280, 36}, "Brickfall", &Theme::font_title},
    {kControlMaker, ControlKind::kText, {96, 50, 160, 20}, "Orvane Arcade", &Theme::font_small},
    {kControlWalletLine, ControlKind::kText, {16, 92, 280, 22}, "Wallet: not connected", &Theme::font_small},
    {kControlBalanceLine, ControlKind::kText, {310, 92, 360, 22}, "Pouch balance:  -", &Theme::font_small},
    {kControlPotLine, ControlKind::kText, {16, 116, 700, 22}, "Current weekly pot:  -", &Theme::font_small},
    {kControlSettings, ControlKind::kButton, {336, 20, 44, 38}, "", &Theme::font_button},
    {kControlPlay, ControlKind::kButton, {388, 22, 150, 34}, "Play  5000 sats", &Theme::font_button},
    {kControlConnect, ControlKind::kButton, {546, 22, 110, 34}, "Connect", &Theme::font_button},
    {kControlUnbind, ControlKind::kButton, {664, 22, 100, 34}, "Unbind", &Theme::font_button},
    {kControlRecord, ControlKind::kButton, {16, 140, 140, 34}, "Record score", &Theme::font_button},
    {kControlBoard, ControlKind::kButton, {164, 140, 170, 34}, "Weekly top scores", &Theme::font_button},
    {kControlHelp, ControlKind::kButton, {342, 140, 90, 34}, "Help", &Theme::font_button},
    {kControlReport, ControlKind::kButton, {440, 140, 90, 34}, "Report", &Theme::font_button},
    {kControlStatus, ControlKind::kText, {16, 700, 740, 20}, "Connect Pouch, then Play.", &Theme::font_small},
    {kControlCloseMain, ControlKind::kButton, {325, 720, 110, 34}, "Close", &Theme::font_button},
    {kControlVersion, ControlKind::kText, {16, 726, 240, 20}, "", &Theme::font_small},
};

bool IsInHeader(int id) {
    const auto* const row = std::find_if(std::begin(kControls), std::end(kControls),
                                         [id](const ControlRow& control) { return control.id == id; });
    return row != std::end(kControls) && row->rect.y < kHeaderBottom;
}

// ---- Layout.

// The cell size that the run in progress or the last one needs; nothing before the first.
std::optional<CellSize> RunCell() {
    const GameState& game = shell.run.game;
    if (shell.run.mode == kModeAttract || game.cell_w <= 0 || game.cell_h <= 0) return std::nullopt;
    return CellSize{std::max<int32_t>(game.cell_w, kSmallestCell),
                    std::max<int32_t>(game.cell_h, kSmallestCell)};
}

// The window is made no smaller than the run in progress needs; one that is already, since a run takes the
// cell size of the moment, stays as it is. The floor of the whole window is where it begins to look crowded.
void LimitSize(const Size& client) {
    const CellSize cell = RunCell().value_or(CellSize{kSmallestCell, kSmallestCell});
    SetMinimumSize(shell.main,
                   {std::min(cell.w * kBrickCols + 322, client.w), std::min(cell.h * 18 + 322, client.h)},
                   kSmallestWindow);
}

// The balance line follows the end of the wallet line.
void FitWalletLine() {
    const std::string line = ControlText(shell.main, kControlWalletLine);
    const int width = std::max(MeasureText(theme.font_small, line).w + 8, 80);
    MoveControl(shell.main, kControlWalletLine, {16, 92, width, 22});
    MoveControl(shell.main, kControlBalanceLine, {width + 36, 92, 360, 22});
}

// Whole if there is room before the Close button.
void FitVersionLine() {
    constexpr Size kUsual = {240, 20};
    const Size client = ClientSize(shell.main);
    const int wanted = MeasureText(theme.font_small, ControlText(shell.main, kControlVersion)).w + 8;
    const int room = (client.w - 110) / 2 - 16 - 8;
    MoveControl(shell.main, kControlVersion,
                {16, client.h - 42, std::max(std::min(wanted, room), kUsual.w), kUsual.h});
}

void SetLine(int id, std::string_view text) {
    SetControlText(shell.main, id, text);
    if (id == kControlWalletLine || id == kControlBalanceLine) FitWalletLine();
}

// ---- What the run and the flows ask for.

bool AnyToolWindowOpen() {
    const WindowId tools[] = {shell.settings, shell.help, shell.board, shell.report};
    return std::any_of(std::begin(tools), std::end(tools), WindowExists);
}

Key PlatformKey(GameKey key) { return key == GameKey::kLeft ? Key::kLeft : Key::kRight; }

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

// Called at every frame: a screen reader hears of it only when it says something else.
void RefreshWell() {
    InvalidateWindow(shell.well);
    std::string spoken = SpokenWell(shell.run);
    if (spoken == shell.spoken_well) return;
    SetAccessibleWindowName(shell.well, "Play field", spoken);
    shell.spoken_well = std::move(spoken);
}

// The Send button of the report window stands for the one that opens it.
void BeginCheck(int control, std::string_view text) {
    shell.status_before_check = ControlText(shell.main, kControlStatus);
    SetStatus(text);
    const bool is_report = control == kControlReport && WindowExists(shell.report);
    BeginWait(is_report ? shell.report : shell.main, is_report ? kControlSendReport : control);
}

void EndCheck() {
    EndWait();
    SetStatus(shell.status_before_check);
}

FlowDriver MakeDriver() {
    FlowDriver driver;
    driver.run.set_status = SetStatus;
    driver.run.enable_control = [](int id, bool on) { EnableWindowControl(shell.main, id, on); };
    driver.run.invalidate_well = RefreshWell;
    driver.run.invalidate_record_button = [] { InvalidateControl(shell.main, kControlRecord); };
    driver.run.refresh_layout = RefreshLayout;
    driver.run.start_heartbeat = [] { StartTimer(shell.main, kHeartbeatTimer, static_cast<int>(kTickMs)); };
    driver.run.focus_main = [] { FocusWindow(shell.main); };
    driver.run.main_has_focus = [] { return HasFocus(shell.main); };
    driver.run.any_tool_window_open = AnyToolWindowOpen;
    driver.run.play_effect = PlayEffect;
    driver.run.record_local_score = [](const std::string& txid) {
        RecordLocalScore(ui_doc, shell.run.final_score, txid, [] { SaveUiSettings(); });
    };
    driver.run.key_down = [](GameKey key) { return KeyIsDown(PlatformKey(key)); };
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

// ---- Tool windows.

// Brings an open window to the front, or makes it: where the desktop likes, or beside the main window.
void OpenOnce(WindowId& slot, WindowId (*open)(WindowId owner), bool beside = false) {
    PauseForWindow(shell.run, shell.driver.run);
    if (WindowExists(slot)) return BringToFront(slot);
    slot = open(shell.main);
    if (beside) return ShowBeside(slot);
    ShowWindow(slot);
}

// ---- Messages.

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

void OnCreate(WindowId window) {
    shell.main = window;
    shell.driver = MakeDriver();
    InstallLogHook(window);
    MakeTheme();
    DressWindow(window);
    shell.well =
        OpenChild(window, {kWellAt.x, kWellAt.y, 740, 520}, kBgColor, [](WindowId, Message& message) {
            if (message.type != MessageType::kPaint) return false;
            PaintWell(*message.canvas, shell.run, shell.cell, TickMs());
            return true;
        });
    RefreshWell();
    for (const ControlRow& control : kControls) {
        if (control.kind == ControlKind::kButton) {
            MakeButton(window, control.text, control.id, control.rect);
        } else {
            CreateText(window, control.id, control.rect, control.text, theme.*control.font);
        }
    }
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

TextStyle StyleOf(int id) {
    if (IsInHeader(id)) return {id == kControlMaker ? kMutedColor : kTextColor, kHeaderColor};
    switch (id) {
        case kControlPotLine:
            return {kAccentColor, kBgColor};
        case kControlStatus:
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
    look.blink = id == kControlRecord && shell.run.record_pending && shell.run.mode == kModeGameOver &&
                 BlinkOn(TickMs(), kRecordBlinkMs);
    return look;
}

void OnCommand(int id) {
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
        case kControlVersion:
            if (shell.update_available) OpenAddress(kDownloadPageUrl);
            return;
        default:
            return;
    }
}

void RefreshOwnRow() {
    UpdateMyFaceKey(shell.board_view.my_key);
    InvalidateWindow(shell.board);
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

void OnPosted(Message& message) {
    switch (message.id) {
        case kMsgConnectDone:
            return OnConnectResult(shell.run, shell.driver, TakeText(message));
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
            const auto balance = TakePayload<StatusResult>(message.payload);
            RefreshOwnRow();  // the refresh may have found the player's name
            return SetLine(kControlBalanceLine, balance.chain_ok
                                                    ? "Pouch balance:  " + FormatBsv(balance.balance) + " BSV"
                                                    : "Pouch balance:  (WhatsOnChain miss)");
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
            OnKeyDown(shell.run, shell.driver.run, KeyOfGame(message.key), message.is_repeat);
            return shell.run.mode == kModePlaying;
        case MessageType::kKeyUp:
            OnKeyUp(shell.run, shell.driver.run, KeyOfGame(message.key));
            return true;
        case MessageType::kTimer:
            if (message.id == kHeartbeatTimer) OnTimer(shell.run, shell.driver.run);
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

CellSize RefreshLayout() {
    const Size client = ClientSize(shell.main);
    const int w = client.w;
    const int h = client.h;
    const int inner = w - 32;
    const auto move = [](int id, const Rect& rect) { MoveControl(shell.main, id, rect); };
    move(kControlTitle, {96, 14, 264, 36});
    move(kControlMaker, {96, 50, 220, 20});
    move(kControlSettings, {376, 20, 44, 38});
    move(kControlPlay, {428, 22, 150, 34});
    move(kControlConnect, {586, 22, 110, 34});
    move(kControlUnbind, {704, 22, 100, 34});
    FitWalletLine();
    move(kControlPotLine, {16, 116, inner, 22});
    move(kControlStatus, {16, h - 74, inner, 20});
    move(kControlCloseMain, {(w - 110) / 2, h - 50, 110, 34});
    FitVersionLine();

    const int room_w = std::max(inner, 400);
    const int room_h = std::max(h - 256, 200);
    Size well = {room_w, room_h};
    if (const std::optional<CellSize> cell = RunCell()) {
        well.w = std::max(well.w, cell->w * kBrickCols + 290);
        well.h = std::max(well.h, cell->h * 18 + 66);
    }
    MoveChild(shell.well, {kWellAt.x, kWellAt.y, well.w, well.h});
    const int cell = std::max(std::min((room_w - 296) / kBrickCols, (room_h - 52) / 18), kSmallestCell);
    shell.cell = {cell, cell};
    LimitSize(client);
    return shell.cell;
}

void RefreshWalletLabels() {
    const bool connected = IsConnected();  // loads the wallet at the start
    RefreshOwnRow();
    std::string wallet = "Wallet: not connected";
    std::string balance = "Pouch balance:  -";
    if (connected) {
        std::string address;
        std::string paymail;
        bool is_hd = false;
        WalletSummary(address, paymail, is_hd);
        wallet = "Wallet: " + (!paymail.empty() ? paymail : !address.empty() ? address : "connected");
        const int64_t shown = ReadShownBalance();
        balance = "Pouch balance:  " + (shown >= 0 ? FormatBsv(shown) + " BSV" : std::string("…"));
        bool idle = false;
        if (balance_busy.compare_exchange_strong(idle, true)) StartBalanceWorker(shell.main);
    }
    SetLine(kControlWalletLine, wallet);
    SetLine(kControlBalanceLine, balance);
    SetControlText(shell.main, kControlConnect, connected ? "Connected" : "Connect");
}

void RefreshPotLabel() {
    const std::string value = shell.pot_sats >= 0        ? FormatBsv(shell.pot_sats) + " BSV"
                              : !shell.pot_error.empty() ? std::string("(lookup miss)")
                                                         : std::string("-");
    SetLine(kControlPotLine, "Current weekly pot:  " + value);
}

void StartPotRefresh() { StartPotWorker(shell.main); }

void StartBoardLoad() {
    if (shell.board_busy) {
        shell.board_again = true;
        return;
    }
    shell.board_busy = true;
    EnableWindowControl(shell.main, kControlBoard, false);
    SetStatus("Loading this week's board...");
    StartBoardWorker(shell.main, TakeBoardSnapshot(ui_doc, shell.run));
}

void SetStatus(std::string_view text) { SetControlText(shell.main, kControlStatus, text); }

void ShowBeside(WindowId tool_window) {
    const Rect rect = WindowRect(tool_window);
    MoveWindow(tool_window,
               PlaceBeside(WindowRect(shell.main), MonitorOf(shell.main).work, {rect.w, rect.h}));
    ShowWindow(tool_window);
}

std::string FormatBsv(int64_t satoshis) {
    constexpr uint64_t kCoin = 100'000'000;
    const uint64_t amount =
        satoshis < 0 ? 0 - static_cast<uint64_t>(satoshis) : static_cast<uint64_t>(satoshis);
    const std::string decimals = std::to_string(amount % kCoin);
    return (satoshis < 0 ? "-" : "") + std::to_string(amount / kCoin) + "." +
           std::string(8 - decimals.size(), '0') + decimals;
}

}  // namespace brickfall
