#include "cabinet/help_window.h"

#include <string>
#include <string_view>
#include <utility>

#include "cabinet/controls.h"
#include "cabinet/theme.h"
#include "cabinet/tool_window.h"

namespace brickfall {
namespace {

constexpr int kControlCloseHelp = 1201;

constexpr std::pair<std::string_view, std::string_view> kKeys[] = {
    {"Left  /  Right", "move the paddle"}, {"Space", "serve the sat"}, {"P", "pause"}};

constexpr std::string_view kRunLines[] = {
    "Connect Pouch, then Play.",
    "Enter is 5,000 sats in one prompt.",
    "2,000 to the house.  3,000 to this week's pot.",
    "Three lives. No continues.",
    "Clear the wall. The sat gets faster.",
    "After the game, Record score writes the result on-chain (1 sat).",
};

constexpr std::string_view kPotLines[] = {
    "Every game feeds the pot.",
    "Record score posts a signed row on the Brickfall watch.",
    "Every cabinet reads that, not a local list.",
    "ARC pays the top three each UTC week (50 / 30 / 20).",
    "Fewer than three: 60 / 40, or 100% if only one.",
    "Pouch balance is your wallet.",
    "Current weekly pot is the prize pool, not yours until a payout.",
};

void DrawKeys(Canvas& canvas, const Rect& panel, int y) {
    for (const auto& [name, action] : kKeys) {
        const Rect cap = {panel.x + 20, y, 150, 26};
        canvas.Fill(cap, Rgb(0x0E241C));
        Bevel(canvas, cap, Rgb(0x50B08C), Rgb(0x020808));
        canvas.Text(cap, name, theme.font_body, kTextColor, AlignX::kCentre, AlignY::kCentre);
        canvas.Text(FromEdges(panel.x + 186, y, panel.Right() - 20, y + 26), action, theme.font_body,
                    kTextColor, AlignX::kLeft, AlignY::kCentre);
        y += 32;
    }
}

std::string SpokenKeys() {
    std::string spoken;
    for (const auto& [name, action] : kKeys) spoken.append(name).append(": ").append(action) += '\n';
    return spoken;
}

}  // namespace

void PaintHelp(Canvas& canvas) {
    DrawToolHeader(canvas);
    const int right = canvas.Extent().w - 24;
    const Rect controls = FromEdges(24, 88, right, 282);
    DrawKeys(canvas, controls, DrawPanel(canvas, controls, "Controls"));
    const Rect run = FromEdges(24, 298, right, 512);
    DrawLines(canvas, run, DrawPanel(canvas, run, "The run"), kRunLines);
    const Rect pot = FromEdges(24, 528, right, 756);
    DrawLines(canvas, pot, DrawPanel(canvas, pot, "The weekly pot"), kPotLines);
}

WindowId OpenHelpWindow(WindowId owner) {
    const std::string spoken = SpokenKeys() + Spoken(kRunLines) + '\n' + Spoken(kPotLines);
    const ToolWindowOptions options = {"Brickfall - Help", {760, 868}, false, spoken};
    return OpenToolWindow(owner, options, [](WindowId window, Message& message) {
        switch (message.type) {
            case MessageType::kCreate:
                MakeButton(window, "Close", kControlCloseHelp, {584, 772, 120, 36});
                return true;
            case MessageType::kCommand:
                if (message.id == kControlCloseHelp) DestroyWindow(window);
                return true;
            case MessageType::kPaint:
                PaintHelp(*message.canvas);
                return true;
            default:
                return false;
        }
    });
}

}  // namespace brickfall
