#include "cabinet/shell_layout.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <string>

#include "cabinet/controls.h"
#include "cabinet/explanation_line.h"
#include "cabinet/shell_state.h"
#include "cabinet/theme.h"
#include "cabinet/well.h"
#include "platform/canvas.h"

namespace brickfall {
namespace {

constexpr int kStatusNewMs = 1'000;
constexpr Size kSmallestWindow = {1200, 1040};

enum class ControlKind { kText, kButton };

struct ControlRow {
    int id;
    ControlKind kind;
    Rect rect;  // at creation; the layout moves it
    const char* text;
    const Font Theme::*font;
    const char* tip = "";
};

constexpr ControlRow kControls[] = {
    {kControlTitle, ControlKind::kText, {96, 14, 280, 36}, "Brickfall", &Theme::font_title},
    {kControlMaker, ControlKind::kText, {96, 50, 160, 20}, "Orvane Arcade", &Theme::font_small},
    {kControlWalletLine, ControlKind::kText, {16, 92, 280, 22}, "Wallet: not connected", &Theme::font_small},
    {kControlBalanceLine, ControlKind::kText, {310, 92, 360, 22}, "Pouch balance:  -", &Theme::font_small},
    {kControlPotLine, ControlKind::kText, {16, 116, 700, 22}, "Current weekly pot:  -", &Theme::font_small},
    {kControlSettings,
     ControlKind::kButton,
     {336, 20, 44, 38},
     "",
     &Theme::font_button,
     "Music, sound and their volumes. Free."},
    {kControlPlay,
     ControlKind::kButton,
     {388, 22, 150, 34},
     "Play  5000 sats",
     &Theme::font_button,
     "Starts a run: 2,000 sats to the house, 3,000 to this week's pot, and a fee of some 150."},
    {kControlConnect,
     ControlKind::kButton,
     {546, 22, 110, 34},
     "Connect",
     &Theme::font_button,
     "Asks Pouch for a wallet to play with. Free."},
    {kControlUnbind,
     ControlKind::kButton,
     {664, 22, 100, 34},
     "Unbind",
     &Theme::font_button,
     "Lets go of the wallet, which stays in Pouch. Free."},
    {kControlRecord,
     ControlKind::kButton,
     {16, 140, 140, 34},
     "Record score",
     &Theme::font_button,
     "Puts the run's score on the chain: 1 sat, and a fee by the keys of the run."},
    {kControlBoard,
     ControlKind::kButton,
     {164, 140, 170, 34},
     "Weekly top scores",
     &Theme::font_button,
     "This week's best scores, read from the chain. Free."},
    {kControlHelp,
     ControlKind::kButton,
     {342, 140, 90, 34},
     "Help",
     &Theme::font_button,
     "What to do, and how a run goes. Free."},
    {kControlReport,
     ControlKind::kButton,
     {440, 140, 90, 34},
     "Report",
     &Theme::font_button,
     "A sealed message to the architect: 1,001 sats, and a fee by its length."},
    {kControlStatus, ControlKind::kText, {16, 700, 740, 20}, "Connect Pouch, then Play.", &Theme::font_small},
    {kControlExplanation, ControlKind::kText, {16, 676, 740, 20}, "", &Theme::font_small},
    {kControlCloseMain,
     ControlKind::kButton,
     {325, 720, 110, 34},
     "Close",
     &Theme::font_button,
     "Ends the program. A score that is not recorded yet cannot be recorded later."},
    {kControlVersion, ControlKind::kText, {16, 726, 240, 20}, "", &Theme::font_small},
};

// The cell size that the run in progress or the last one needs; nothing before the first.
std::optional<CellSize> RunCell() {
    const GameState& game = shell.run.game;
    if (shell.run.mode == kModeAttract || game.cell_w <= 0 || game.cell_h <= 0) return std::nullopt;
    return CellSize{std::max<int32_t>(game.cell_w, kSmallestCell),
                    std::max<int32_t>(game.cell_h, kSmallestCell)};
}

Size ClientNeeded() {
    const CellSize cell = RunCell().value_or(CellSize{kSmallestCell, kSmallestCell});
    return {cell.w * kBrickCols + 322, cell.h * 18 + 322};
}

// The window is made no smaller than the run in progress needs; one that is already, since a run takes the
// cell size of the moment, stays as it is. The floor of the whole window is where it begins to look crowded.
void LimitSize(const Size& client) {
    const Size needed = ClientNeeded();
    SetMinimumSize(shell.main, {std::min(needed.w, client.w), std::min(needed.h, client.h)}, kSmallestWindow);
}

// The balance line follows the end of the wallet line.
void FitWalletLine() {
    const std::string line = ControlText(shell.main, kControlWalletLine);
    const int width = std::max(MeasureText(theme.font_small, line).w + 8, 80);
    MoveControl(shell.main, kControlWalletLine, {16, 92, width, 22});
    MoveControl(shell.main, kControlBalanceLine, {width + 36, 92, 360, 22});
}

void FitExplanation() {
    constexpr int kAboveStatus = 24, kFrame = 10;
    const Size client = ClientSize(shell.main);
    const int top = client.h - 74 - kAboveStatus;
    const int field_h = RunCell().value_or(shell.cell).h * (kFieldH / kCellUnits);
    const bool stands = kWellAt.y + kFieldTop + field_h + kFrame <= top &&
                        !ControlText(shell.main, kControlExplanation).empty();
    MoveControl(shell.main, kControlExplanation, stands ? Rect{16, top, client.w - 32, 20} : Rect{});
}

void ShowExplanation(std::string_view text) {
    SetControlText(shell.main, kControlExplanation, text);
    FitExplanation();
}

}  // namespace

void CreateMainControls(WindowId window) {
    for (const ControlRow& control : kControls) {
        if (control.kind == ControlKind::kButton) {
            MakeButton(window, control.text, control.id, control.rect, control.tip);
        } else {
            CreateText(window, control.id, control.rect, control.text, theme.*control.font);
        }
    }
    SetTextClickable(window, kControlStatus, true);
    SetTextSpoken(window, kControlStatus);
}

bool RunFitsWorkArea() {
    const Size needed = ClientNeeded();
    const Size frame = FrameSize(shell.main);
    const Rect work = MonitorOf(shell.main).work;
    return needed.w + frame.w <= work.w && needed.h + frame.h <= work.h;
}

bool IsInHeader(int id) {
    const auto* const row = std::find_if(std::begin(kControls), std::end(kControls),
                                         [id](const ControlRow& control) { return control.id == id; });
    return row != std::end(kControls) && row->rect.y < kHeaderBottom;
}

void RefreshExplanation() {
    const std::string others[] = {ControlText(shell.main, kControlBalanceLine),
                                  ControlText(shell.main, kControlPotLine)};
    ShowExplanation(ExplanationLine(ControlText(shell.main, kControlStatus), others));
}

void ExplainBox(std::string_view text) { ShowExplanation(ExplanationOf(text)); }

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

void SetStatus(std::string_view text) {
    SetControlText(shell.main, kControlStatus, text);
    shell.status_is_new = true;
    StartTimer(shell.main, kStatusTimer, kStatusNewMs);
    InvalidateControl(shell.main, kControlStatus);
    RefreshExplanation();
}

void OnStatusTimer() {
    StopTimer(shell.main, kStatusTimer);
    shell.status_is_new = false;
    InvalidateControl(shell.main, kControlStatus);
}

Color StatusColor() {
    if (ControlText(shell.main, kControlStatus).starts_with("error:")) return kWarnColor;
    return shell.status_is_new ? kTextColor : kMutedColor;
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
    shell.cell = FittedCell({room_w, room_h});
    FitExplanation();
    LimitSize(client);
    return shell.cell;
}

}  // namespace brickfall
