#include "viewer/run_list_window.h"

#include <algorithm>
#include <string>
#include <utility>

#include "audit/report.h"
#include "base/text.h"
#include "cabinet/controls.h"
#include "cabinet/face_drawing.h"
#include "cabinet/theme.h"
#include "viewer/scene.h"

namespace brickfall {
namespace {

constexpr int kPreviousPage = 1;
constexpr int kNextPage = 2;
constexpr int kTop = 56;
constexpr int kRowStep = 54;
constexpr int kRowHeight = 50;
constexpr int kFoot = 56;
constexpr Size kListSize = {860, 900};

struct List {
    std::function<void(const WatchedRun&)> choose;
    std::size_t page = 0;
    std::size_t rows_shown = 0;
};

List& list = *new List;

std::size_t RowsAPage() {
    return static_cast<std::size_t>(std::max(1, (ClientSize(viewer.list).h - kTop - kFoot) / kRowStep));
}

std::size_t FirstRow() { return list.page * RowsAPage(); }

Color ColorOf(AuditStatus status) {
    if (status == AuditStatus::kSound) return kAccentColor;
    return status == AuditStatus::kUnsound ? kWarnColor : kGoldColor;
}

std::string LengthText(const WatchedRun& run) {
    if (!run.tape) return "nothing to play";
    if (!run.audit.run) return "does not replay";
    return "level " + std::to_string(run.audit.run->level) + ", " +
           PlayedText(static_cast<uint64_t>(run.audit.run->length_ms));
}

void PaintRow(Canvas& canvas, const WatchedRun& run, const ButtonState& state) {
    const Size size = canvas.Extent();
    const Rect box = {0, 0, size.w, size.h};
    const bool is_hot = state.hot && !state.disabled;
    canvas.Fill(box, kBgColor);
    canvas.Fill(box.Grown(-1), is_hot ? BlendColor(kPanelColor, kAccentColor, 40) : kPanelColor);
    canvas.FrameRoundRect(box, 10, state.focused ? kTextColor : kBorderColor, state.focused ? 2 : 1);
    DrawFace(canvas, 10, 6, RunFaceKey(run.audit));
    const Color text = state.disabled ? kMutedColor : kTextColor;
    const auto cell = [&](int left, int right, std::string_view what, const Font& font, Color color,
                          AlignX align) {
        canvas.Text(FromEdges(left, 0, right, size.h), what, font, color, align, AlignY::kCentre,
                    /*ellipsis=*/true);
    };
    cell(60, 230, RunName(run.audit), theme.font_button, text, AlignX::kLeft);
    cell(236, 346, Grouped(run.audit.score), theme.font_mono, text, AlignX::kRight);
    cell(362, 500, LengthText(run), theme.font_small, kMutedColor, AlignX::kLeft);
    cell(506, size.w - 10, VerdictLine(run.audit), theme.font_small, ColorOf(run.audit.Status()),
         AlignX::kLeft);
}

void LayOutList() {
    const Size client = ClientSize(viewer.list);
    const std::vector<WatchedRun>& runs = viewer.loaded.runs;
    const std::size_t a_page = RowsAPage();
    list.page = std::min(list.page, runs.empty() ? 0 : (runs.size() - 1) / a_page);
    const std::size_t rows = std::min(a_page, runs.size() - std::min(FirstRow(), runs.size()));
    for (std::size_t i = 0; i < std::max(rows, list.rows_shown); ++i) {
        const int id = kFirstListRow + static_cast<int>(i);
        if (i >= rows) {
            RemoveControl(viewer.list, id);
            continue;
        }
        const WatchedRun& run = runs[FirstRow() + i];
        const std::string spoken = RunName(run.audit) + ", " + Grouped(run.audit.score) + ", " +
                                   LengthText(run) + ", " + VerdictLine(run.audit);
        CreateButton(viewer.list, id, {20, kTop + static_cast<int>(i) * kRowStep, client.w - 40, kRowHeight},
                     spoken, theme.font_button);
        EnableWindowControl(viewer.list, id, run.tape.has_value());
    }
    list.rows_shown = rows;
    // Behind the rows, also in the order of Tab.
    MakeButton(viewer.list, "Previous page", kPreviousPage, {20, client.h - 46, 140, 34});
    MakeButton(viewer.list, "Next page", kNextPage, {168, client.h - 46, 140, 34});
    EnableWindowControl(viewer.list, kPreviousPage, list.page > 0);
    EnableWindowControl(viewer.list, kNextPage, FirstRow() + rows < runs.size());
    FocusControl(viewer.list, kFirstListRow);
    InvalidateWindow(viewer.list);
}

void PaintList(Canvas& canvas) {
    const Size client = canvas.Extent();
    canvas.Fill({0, 0, client.w, client.h}, kBgColor);
    std::string title = viewer.loaded.title;
    if (!viewer.loaded.note.empty()) title += " (" + viewer.loaded.note + ")";
    canvas.Text({20, 14, client.w - 40, 34}, title, theme.font_title, kAccentColor, AlignX::kLeft,
                AlignY::kCentre, /*ellipsis=*/true);
}

bool OnListMessage(WindowId window, Message& message) {
    switch (message.type) {
        case MessageType::kCreate:
            viewer.list = window;
            SetTitleBarColors(window, kHeaderColor, kBorderColor, kTextColor);
            SetAccessibleWindowName(window, "Runs", "Choose a run to watch");
            list.rows_shown = 0;
            LayOutList();
            return true;
        case MessageType::kSize:
            LayOutList();
            return true;
        case MessageType::kPaint:
            PaintList(*message.canvas);
            return true;
        case MessageType::kPaintButton: {
            const std::size_t row = FirstRow() + static_cast<std::size_t>(message.id - kFirstListRow);
            if (message.id < kFirstListRow) {
                PaintButton(window, message);
            } else if (row < viewer.loaded.runs.size()) {
                PaintRow(*message.canvas, viewer.loaded.runs[row], message.button);
            }
            return true;
        }
        case MessageType::kCommand:
            if (message.id == kPreviousPage || message.id == kNextPage) {
                list.page =
                    message.id == kNextPage ? list.page + 1 : list.page - std::min<std::size_t>(list.page, 1);
                LayOutList();
            } else if (const std::size_t row =
                           FirstRow() + static_cast<std::size_t>(message.id - kFirstListRow);
                       row < viewer.loaded.runs.size()) {
                const WatchedRun chosen = viewer.loaded.runs[row];
                const auto choose = list.choose;
                DestroyWindow(window);
                choose(chosen);
            }
            return true;
        case MessageType::kKeyDown:
            if (message.key == Key::kEscape) DestroyWindow(window);
            return true;
        case MessageType::kDestroy:
            viewer.list = 0;
            return true;
        default:
            return false;
    }
}

}  // namespace

void OpenRunList(const std::function<void(const WatchedRun&)>& choose) {
    if (viewer.list != 0) DestroyWindow(viewer.list);
    list = {.choose = choose, .page = 0, .rows_shown = 0};
    const WindowId window = OpenWindow({.title = "Brickfall runs",
                                        .size = kListSize,
                                        .size_is_client = true,
                                        .owner = viewer.main,
                                        .background = kBgColor},
                                       OnListMessage);
    ShowWindow(window);
}

void RefreshRunList() {
    for (std::size_t i = 0; i < list.rows_shown; ++i)
        InvalidateControl(viewer.list, kFirstListRow + static_cast<int>(i));
}

}  // namespace brickfall
