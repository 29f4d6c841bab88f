// Whether every text can be read: each that a painter draws is held against the pixels that it finds there.
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <string>
#include <vector>

#include "cabinet/board_window.h"
#include "cabinet/box_look.h"
#include "cabinet/controls.h"
#include "cabinet/face_drawing.h"
#include "cabinet/help_window.h"
#include "cabinet/report_window.h"
#include "cabinet/shell_layout.h"
#include "cabinet/theme.h"
#include "cabinet/well.h"
#include "tests/cabinet/cabinet_fixture.h"
#include "tests/support/color_math.h"

namespace brickfall {
namespace {

constexpr double kReadable = 4.5;
constexpr Color kOutlineColor = Rgb(0x140000);

// Texts whose colours are given and are darker, by what they say.
struct Muted {
    const char* where;
    const char* text;
};
constexpr Muted kMuted[] = {
    {"game over, dark half", "GAME OVER"},  // alternates with a brighter red
    {"button disabled", "Record score"},    // it is not to be pressed
    {"button blinking", "Record score"},    // alternates with the usual gradient
};

struct TextCall {
    Rect rect;
    std::string text;
    Font font;
    Color color;
    AlignX x;
    AlignY y;
    bool ellipsis;

    void DrawOn(Canvas& canvas, Color ink) const { canvas.Text(rect, text, font, ink, x, y, ellipsis); }
};

// Passes everything on until the text of this number; keeps the texts.
class TextWalk final : public Canvas {
  public:
    TextWalk(Canvas& inner, std::size_t until, std::vector<TextCall>& calls)
        : inner_(inner), until_(until), calls_(calls) {}

    Size Extent() const override { return inner_.Extent(); }
    double Density() const override { return inner_.Density(); }
    void Fill(const Rect& rect, Color color) override {
        if (Going()) inner_.Fill(rect, color);
    }
    void Pixel(Point at, Color color) override {
        if (Going()) inner_.Pixel(at, color);
    }
    void Line(Point from, Point to, Color color, int width) override {
        if (Going()) inner_.Line(from, to, color, width);
    }
    void FrameRoundRect(const Rect& rect, int corner, Color color, int width) override {
        if (Going()) inner_.FrameRoundRect(rect, corner, color, width);
    }
    void FillEllipse(const Rect& box, Color color) override {
        if (Going()) inner_.FillEllipse(box, color);
    }
    void FrameEllipse(const Rect& box, Color color, double width) override {
        if (Going()) inner_.FrameEllipse(box, color, width);
    }
    void Text(const Rect& rect, std::string_view text, const Font& font, Color color, AlignX x, AlignY y,
              bool ellipsis) override {
        calls_.push_back({rect, std::string(text), font, color, x, y, ellipsis});
        if (Going()) calls_.back().DrawOn(inner_, color);
    }
    void Draw(const Image& image, const Rect& rect) override {
        if (Going()) inner_.Draw(image, rect);
    }
    void ClipRoundRect(const Rect& rect, int corner, const std::function<void()>& body) override {
        inner_.ClipRoundRect(rect, corner, body);
    }
    void ClipEllipse(const Rect& box, const std::function<void()>& body) override {
        inner_.ClipEllipse(box, body);
    }

  private:
    bool Going() const { return calls_.size() <= until_; }

    Canvas& inner_;
    const std::size_t until_;
    std::vector<TextCall>& calls_;
};

using Painter = std::function<void(Canvas&)>;

// The least contrast along the edges of a text's strokes.
double LeastContrast(Size size, const TextCall& call, const Image& behind) {
    const Image ink = DrawToImage(size, [&](Canvas& canvas) {
        canvas.Fill({0, 0, size.w, size.h}, Rgb(0x000000));
        call.DrawOn(canvas, Rgb(0xFFFFFF));
    });
    const auto is_stroke = [&](int x, int y) { return PixelOf(ink, x, y).g > 160; };
    const Rect within = call.rect;
    double least = 21;
    for (int y = std::max(1, within.y); y < std::min(size.h - 1, within.Bottom()); ++y) {
        for (int x = std::max(1, within.x); x < std::min(size.w - 1, within.Right()); ++x) {
            if (!is_stroke(x, y)) continue;
            for (const auto& [dx, dy] : {std::pair(0, 0), {1, 0}, {-1, 0}, {0, 1}, {0, -1}}) {
                least = std::min(least, Contrast(call.color, PixelOf(behind, x + dx, y + dy)));
            }
        }
    }
    return least;
}

struct Unreadable {
    std::string where, text;
    double contrast;
};

void Walk(const std::string& where, Size size, const Painter& paint, std::vector<Unreadable>& found) {
    std::vector<TextCall> calls;
    DrawToImage(size, [&](Canvas& canvas) {
        TextWalk walk(canvas, SIZE_MAX, calls);
        paint(walk);
    });
    EXPECT_FALSE(calls.empty()) << where;
    for (std::size_t i = 0; i < calls.size(); ++i) {
        if (calls[i].color == kOutlineColor || calls[i].text.empty()) continue;
        std::vector<TextCall> before;
        const Image behind = DrawToImage(size, [&](Canvas& canvas) {
            TextWalk walk(canvas, i, before);
            paint(walk);
        });
        const double contrast = LeastContrast(size, calls[i], behind);
        if (contrast < kReadable) found.push_back({where, calls[i].text, contrast});
    }
}

WellState WellIn(RunMode mode, bool paused = false, int cell = 30) {
    WellState state{mode, NewGame(cell, cell), 4'321};
    for (auto& row : state.game.bricks) std::fill(std::begin(row), std::end(row), uint8_t{3});
    state.game.paused = paused;
    return state;
}

BoardView FullBoard() {
    BoardView view;
    for (const char* const handle : {"ada", "bob", "cy"}) {
        view.rows.emplace_back().handle = handle;
        view.rows.back().score = 100;
    }
    view.best = view.rows.front();
    view.has_best = true;
    view.my_key = "bob";
    return view;
}

std::vector<Unreadable> WalkEverything() {
    std::vector<Unreadable> found;
    constexpr Size kWell = {30 * 13 + 290, 30 * 18 + 66};
    const auto well = [&](const char* name, const WellState& state, uint64_t tick_ms) {
        Walk(
            name, kWell,
            [&](Canvas& canvas) {
                PaintWell(canvas, state, {30, 30}, tick_ms, {"Fee about 9,000 sats,", "too long", true},
                          /*eyes=*/{}, {.serve = true, .record = true});
            },
            found);
    };
    well("attract", {}, 0);
    well("playing", WellIn(kModePlaying), 0);
    well("paused", WellIn(kModePlaying, true), 0);
    well("game over, dark half", WellIn(kModeGameOver), 0);
    well("game over, bright half", WellIn(kModeGameOver), 220);
    well("recorded", WellIn(kModeRecorded), 0);
    for (const int cell : {18, 55, 102}) {
        const WellState state = WellIn(kModePlaying, true, cell);
        Walk(
            "a cell of " + std::to_string(cell), {cell * 13 + 290, cell * 18 + 66},
            [&](Canvas& canvas) {
                PaintWell(canvas, state, {cell, cell}, 0);
            },
            found);
    }
    const BoardView full = FullBoard();
    for (const BoardView& view : {BoardView{}, full}) {
        Walk(
            "board", kBoardWindowSize, [&](Canvas& canvas) { PaintBoard(canvas, view, ScrollBoard(view)); },
            found);
    }
    Walk(
        "help", {760, 868}, [](Canvas& canvas) { PaintHelp(canvas, ScrollHelp()); }, found);
    Walk("report", kReportClientSize, PaintReport, found);
    const struct {
        const char* name;
        ButtonState button;
        bool blink = false;
    } buttons[] = {{"button at rest", {}},
                   {"button hot", {.hot = true}},
                   {"button pressed", {.hot = true, .pressed = true}},
                   {"button disabled", {.disabled = true}},
                   {"button focused", {.focused = true}},
                   {"button blinking", {}, true}};
    for (const auto& each : buttons) {
        Walk(
            each.name, {140, 34},
            [&](Canvas& canvas) {
                PaintButtonFace(canvas, "Record score", each.button, {kBgColor, each.blink});
            },
            found);
    }
    for (const BoxIcon icon : {BoxIcon::kInformation, BoxIcon::kQuestion, BoxIcon::kWarning}) {
        Walk(
            "icon", {44, 44},
            [icon](Canvas& canvas) {
                canvas.Fill({0, 0, 44, 44}, kBgColor);
                DrawBoxIcon(canvas, icon);
            },
            found);
    }
    return found;
}

TEST(Contrast, IsEnoughForEveryTextThatAPainterDraws) {
    MakeTheme();
    const std::vector<Unreadable> found = WalkEverything();
    for (const Unreadable& each : found) {
        const bool is_muted = std::any_of(std::begin(kMuted), std::end(kMuted), [&each](const Muted& muted) {
            return each.where == muted.where && each.text == muted.text;
        });
        EXPECT_TRUE(is_muted) << each.where << ": " << each.text << " " << each.contrast;
    }
    EXPECT_EQ(found.size(), std::size(kMuted)) << "a text that is listed can be read";
}

TEST(Contrast, IsEnoughForEveryTextThatStandsByItself) {
    CabinetFixture cabinet;
    const auto expect_readable = [](WindowId window, int first, int last) {
        for (int id = first; id <= last; ++id) {
            if (!ControlExists(window, id)) continue;
            Message message{.type = MessageType::kTextStyle, .id = id};
            if (window == shell.main) MainWindowProc(window, message);
            const TextStyle style = message.style;
            EXPECT_GE(Contrast(style.text, style.background), kReadable) << id;
        }
    };
    for (const char* const status : {"paying", "error: no coins"}) {
        SetStatus(status);
        for (const int build : {-1, 0}) {
            for (const bool available : {false, true}) {
                shell.build_latest = build;
                shell.update_available = available;
                expect_readable(cabinet.main, 1001, 1017);
            }
        }
        OnStatusTimer();
    }
    for (const Color color : {kTextColor, kMutedColor, kAccentColor}) {  // boxes, settings
        EXPECT_GE(Contrast(color, kBgColor), kReadable);
    }
}

}  // namespace
}  // namespace brickfall
