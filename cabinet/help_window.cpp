#include "cabinet/help_window.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

#include "cabinet/controls.h"
#include "cabinet/theme.h"
#include "cabinet/tool_window.h"

namespace brickfall {
namespace {

constexpr int kControlCloseHelp = 1201;
constexpr int kCloseHelpTop = 772;
constexpr int kPanelsBottom = kCloseHelpTop - 8;  // the last panel's, and half of what is free below it
constexpr int kLineStep = 32;

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

Scrolling ScrollHelp(int missing) {
    constexpr int kContent = kPanelsBottom - kToolHeaderBottom;
    return {.content = kContent, .room = std::max(kLineStep, kContent - missing), .step = kLineStep};
}

void PaintHelp(Canvas& canvas, const Scrolling& scrolling) {
    DrawToolHeader(canvas);
    const Size client = canvas.Extent();
    const Rect room = {0, kToolHeaderBottom, client.w, scrolling.room};
    DrawScrolled(canvas, room, scrolling, kBgColor, [&] {
        const auto panel = [&](int top, int bottom) {
            return FromEdges(24, top - scrolling.offset, client.w - 24, bottom - scrolling.offset);
        };
        const Rect controls = panel(88, 282);
        DrawKeys(canvas, controls, DrawPanel(canvas, controls, "Controls"));
        const Rect run = panel(298, 512);
        DrawLines(canvas, run, DrawPanel(canvas, run, "The run"), kRunLines);
        const Rect pot = panel(528, 756);
        DrawLines(canvas, pot, DrawPanel(canvas, pot, "The weekly pot"), kPotLines);
    });
}

WindowId OpenHelpWindow(WindowId owner) {
    const std::string spoken = SpokenKeys() + Spoken(kRunLines) + '\n' + Spoken(kPotLines);
    const ToolWindowOptions options = {"Brickfall - Help", {760, 868}, false, spoken, /*scrolls=*/true};
    return OpenToolWindow(owner, options,
                          [scrolling = Scrolling()](WindowId window, Message& message) mutable {
                              switch (message.type) {
                                  case MessageType::kCreate: {
                                      const int missing = static_cast<int>(message.value);
                                      scrolling = ScrollHelp(missing);
                                      MakeButton(window, "Close", kControlCloseHelp,
                                                 {584, kCloseHelpTop - missing, 120, 36}, kCloseTip);
                                      return true;
                                  }
                                  case MessageType::kCommand:
                                      if (message.id == kControlCloseHelp) DestroyWindow(window);
                                      return true;
                                  case MessageType::kPaint:
                                      PaintHelp(*message.canvas, scrolling);
                                      return true;
                                  default:
                                      return OnScrollMessage(window, message, scrolling);
                              }
                          });
}

}  // namespace brickfall
