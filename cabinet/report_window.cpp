#include "cabinet/report_window.h"

#include <string>
#include <string_view>

#include "cabinet/controls.h"
#include "cabinet/shell_layout.h"
#include "cabinet/shell_state.h"
#include "cabinet/theme.h"
#include "cabinet/tool_window.h"
#include "game/flows.h"

namespace brickfall {
namespace {

enum ReportControlId : int {
    kControlText = 1401,
    kControlCloseReport = 1403,
};

constexpr int kTextLimit = 2'000;

constexpr std::string_view kWhatLines[] = {"Bug reports and abuse. Not email.",
                                           "Encrypted to the architect."};
constexpr std::string_view kIncludeLines[] = {"What broke, or who abused.", "A score txid if you have one.",
                                              "2,000 characters at most."};

void CreateReport(WindowId window) {
    CreateEdit(window, kControlText, {24, 402, 552, 148}, theme.font_button, kTextLimit, kTextColor,
               kPanelColor);
    MakeButton(window, "Send report", kControlSendReport, {24, 568, 150, 36},
               "1,000 sats against spam, 1 for its mark, and a fee by its length.");
    MakeButton(window, "Close", kControlCloseReport, {184, 568, 110, 36},
               "Closes this window; what you wrote is lost.");
    SetAccessibleControlName(window, kControlText, "Report text");
    FocusControl(window, kControlText);
}

void Send(WindowId window) {
    if (!shell.run.busy) shell.asked = kPayReport;
    const ReportOutcome outcome = OnSendReport(shell.run, shell.driver, ControlText(window, kControlText));
    if (outcome.sent) {
        DestroyWindow(window);
    } else if (!outcome.refusal.empty()) {
        ExplainBox(outcome.refusal);
        ShowMessageBox(window, "Report", outcome.refusal, BoxButtons::kOk,
                       outcome.is_warning ? BoxIcon::kWarning : BoxIcon::kInformation);
        RefreshExplanation();
    }
}

}  // namespace

void PaintReport(Canvas& canvas) {
    DrawToolHeader(canvas);
    const int right = canvas.Extent().w - 24;
    const Rect what = FromEdges(24, 88, right, 216);
    DrawLines(canvas, what, DrawPanel(canvas, what, "What this is"), kWhatLines);
    const Rect include = FromEdges(24, 232, right, 386);
    DrawLines(canvas, include, DrawPanel(canvas, include, "What to include"), kIncludeLines);
    canvas.Text(FromEdges(310, 568, right, 604), "Report spam protection fee.", theme.font_small, kMutedColor,
                AlignX::kRight, AlignY::kCentre);
}

WindowId OpenReportWindow(WindowId owner) {
    const std::string spoken = Spoken(kWhatLines) + '\n' + Spoken(kIncludeLines);
    const ToolWindowOptions options = {"Report", kReportClientSize, true, spoken};
    return OpenToolWindow(owner, options, [](WindowId window, Message& message) {
        switch (message.type) {
            case MessageType::kCreate:
                CreateReport(window);
                return true;
            case MessageType::kCommand:
                if (message.id == kControlSendReport) Send(window);
                if (message.id == kControlCloseReport) DestroyWindow(window);
                return true;
            case MessageType::kPaint:
                PaintReport(*message.canvas);
                return true;
            default:
                return false;
        }
    });
}

}  // namespace brickfall
