#include "cabinet/board_window.h"

#include <algorithm>

#include "board/faces.h"
#include "cabinet/controls.h"
#include "cabinet/face_drawing.h"
#include "cabinet/images.h"
#include "cabinet/theme.h"
#include "cabinet/tool_window.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/link/paymail_sync.h"

namespace brickfall {
namespace {

constexpr int kControlCloseBoard = 1102;
constexpr int kCloseBoardTop = 796;
constexpr int kRowsBottom = kCloseBoardTop - 8;  // the strip with Close stays free
constexpr int kRowPitch = 54;

struct RowLook {
    std::string place;  // empty for the best row
    Color edge;
    Color score;
    bool is_best = false;
};

// The y of the next row.
int DrawBoardRow(Canvas& canvas, int y, const ScoreRow& row, const RowLook& look, std::string_view my_key) {
    const std::string key = FaceKey(row);
    const bool mine = !my_key.empty() && my_key == key;
    const Rect box = FromEdges(20, y, canvas.Extent().w - 20, y + 50);
    const Color fill = look.is_best ? BlendColor(kPanelColor, kGoldColor, 28)
                       : mine       ? BlendColor(kPanelColor, kAccentColor, 40)
                                    : kPanelColor;
    canvas.Fill(box, fill);
    canvas.FrameRoundRect(box, 10, look.edge, look.is_best ? 2 : 1);
    int face_x = box.x + 16;
    if (!look.place.empty()) {
        canvas.Text(FromEdges(box.x + 10, y, box.x + 42, box.Bottom()), look.place, theme.font_title,
                    look.edge, AlignX::kCentre, AlignY::kCentre);
        face_x = box.x + 48;
    }
    DrawFace(canvas, face_x, y + 4, key);
    canvas.Text(FromEdges(face_x + 52, y, box.Right() - 140, box.Bottom()), key, theme.font_button,
                kTextColor, AlignX::kLeft, AlignY::kCentre, /*ellipsis=*/true);
    canvas.Text(FromEdges(box.Right() - 132, y, box.Right() - 16, box.Bottom()), std::to_string(row.score),
                theme.font_mono, look.score, AlignX::kRight, AlignY::kCentre, /*ellipsis=*/true);
    return y + kRowPitch;
}

bool ShowsBest(const BoardView& view) { return view.has_best && view.best.score >= 1; }

int RowsTop(const BoardView& view) { return ShowsBest(view) ? 204 : 96; }

// "No scores posted yet." stands for a load that gave no reason.
std::string_view EmptyText(const BoardView& view) {
    return view.message.empty() ? std::string_view("No scores posted yet.") : view.message;
}

std::string SpokenBoard(const BoardView& view) {
    std::string spoken;
    const auto add = [&spoken](const ScoreRow& row) {
        spoken += FaceKey(row) + " " + std::to_string(row.score) + '\n';
    };
    if (ShowsBest(view)) {
        spoken += "Highest Score Ever: ";
        add(view.best);
    }
    spoken += "Top scores for this week.\n";
    if (view.rows.empty()) spoken += EmptyText(view);
    for (std::size_t i = 0; i < view.rows.size(); ++i) {
        spoken += std::to_string(i + 1) + ". ";
        add(view.rows[i]);
    }
    return spoken;
}

}  // namespace

void UpdateMyFaceKey(std::string& key) {
    const ShownWallet shown = WalletShown();
    key = shown.loaded && shown.is_hd ? NormalizePaymailHandle(shown.name) : std::string();
}

Scrolling ScrollBoard(const BoardView& view, int missing) {
    Scrolling scrolling = {.content = static_cast<int>(view.rows.size()) * kRowPitch,
                           .room = std::max(kRowPitch, kRowsBottom - missing - RowsTop(view)),
                           .step = kRowPitch};
    const auto mine = std::find_if(view.rows.begin(), view.rows.end(), [&view](const ScoreRow& row) {
        return !view.my_key.empty() && FaceKey(row) == view.my_key;
    });
    if (mine != view.rows.end()) {
        const int top = static_cast<int>(mine - view.rows.begin()) * kRowPitch;
        scrolling.To(top - (scrolling.room - kRowPitch) / 2);
    }
    return scrolling;
}

void PaintBoard(Canvas& canvas, const BoardView& view, const Scrolling& scrolling) {
    const Size client = canvas.Extent();
    canvas.Fill({0, 0, client.w, client.h}, kBgColor);
    const int right = client.w - 28;
    const auto rule = [&](int y) { canvas.Fill(FromEdges(28, y, right, y + 1), kBorderColor); };
    int y = 16;
    if (ShowsBest(view)) {
        canvas.Text(FromEdges(28, 16, right, 42), "Highest Score Ever", theme.font_title, kGoldColor,
                    AlignX::kLeft, AlignY::kCentre, /*ellipsis=*/true);
        y = DrawBoardRow(canvas, 46, view.best, {"", kGoldColor, kGoldColor, true}, view.my_key);
        rule(y + 10);
        y += 24;
    }
    canvas.Text(FromEdges(28, y, right, y + 24), "Pot accumulates until Saturday noon, UK time.",
                theme.font_small, kMutedColor);
    canvas.Text(FromEdges(28, y + 26, right, y + 62), "Top scores for this week.", theme.font_title,
                kTextColor);
    rule(y + 66);
    y = RowsTop(view);
    if (view.rows.empty()) {
        canvas.Text(FromEdges(28, y, right, y + 40), EmptyText(view), theme.font_button, kMutedColor);
        return;
    }
    const Rect room = {0, y, client.w, scrolling.room};
    y -= scrolling.offset;
    DrawScrolled(canvas, room, scrolling, kBgColor, [&] {
        for (std::size_t i = 0; i < view.rows.size(); ++i, y += kRowPitch) {
            if (y + kRowPitch <= room.y || y >= room.Bottom()) continue;
            const bool first = i == 0;
            DrawBoardRow(
                canvas, y, view.rows[i],
                {std::to_string(i + 1), first ? kGoldColor : kBorderColor, first ? kGoldColor : kAccentColor},
                view.my_key);
        }
    });
}

WindowId OpenBoardWindow(WindowId owner, const BoardView& view) {
    return OpenToolWindow(owner,
                          {"Weekly top scores", kBoardWindowSize, false, SpokenBoard(view), /*scrolls=*/true},
                          [&view, scrolling = Scrolling()](WindowId window, Message& message) mutable {
                              switch (message.type) {
                                  case MessageType::kCreate: {
                                      const int missing = static_cast<int>(message.value);
                                      scrolling = ScrollBoard(view, missing);
                                      MakeButton(window, "Close", kControlCloseBoard,
                                                 {400, kCloseBoardTop - missing, 110, 34}, kCloseTip);
                                      return true;
                                  }
                                  case MessageType::kCommand:
                                      if (message.id == kControlCloseBoard) DestroyWindow(window);
                                      return true;
                                  case MessageType::kPaint:
                                      PaintBoard(*message.canvas, view, scrolling);
                                      return true;
                                  default:
                                      return OnScrollMessage(window, message, scrolling);
                              }
                          });
}

}  // namespace brickfall
