#include "viewer/scene.h"

#include <array>
#include <cstdio>

#include "base/text.h"
#include "cabinet/theme.h"

namespace brickfall {
namespace {

constexpr uint64_t kServeShownMs = 240;
constexpr Color kFailGroundColor = Rgb(0x1C0808);
constexpr Color kGhostColor = Rgb(0x9CB8FF);

const char* InputText(uint8_t code) {
    switch (code) {
        case kInputLeftDown:
            return "left down";
        case kInputLeftUp:
            return "left up";
        case kInputRightDown:
            return "right down";
        case kInputRightUp:
            return "right up";
        case kInputServe:
            return "serve";
        case kInputEnd:
            return "end";
        default:
            return "";
    }
}

ShownInputs InputsAt(const Course& course, uint64_t tick_ms) {
    const auto& events = course.Tape().events;
    ShownInputs shown{.tick_ms = tick_ms,
                      .events = course.EventsTaken(),
                      .of_events = events.size(),
                      .serves = false,
                      .last = {}};
    for (std::size_t i = shown.events; i > 0 && events[i - 1].tick_ms + kServeShownMs > tick_ms; --i)
        shown.serves = shown.serves || events[i - 1].code == kInputServe;
    if (shown.events > 0) {
        const InputEvent& last = events[shown.events - 1];
        shown.last = std::string(InputText(last.code)) + " at " + Grouped(last.tick_ms / kTickMs);
    }
    return shown;
}

void PaintInputs(Canvas& canvas, const Rect& field, const GameState& game, const ShownInputs& inputs) {
    const int left = field.w + 62;
    int y = 250;
    const auto key = [&](int x, int w, std::string_view text, bool held) {
        const Rect box = {x, y, w, 30};
        canvas.Fill(box, held ? kAccentColor : kPanelColor);
        canvas.FrameRoundRect(box, 0, kBorderColor);
        canvas.Text(box, text, theme.font_small, held ? kBgColor : kTextColor, AlignX::kCentre,
                    AlignY::kCentre);
    };
    key(left, 62, "Left", game.left_held);
    key(left + 70, 62, "Serve", inputs.serves);
    key(left + 140, 62, "Right", game.right_held);
    y += 40;
    for (const std::string& line : {"Tick  " + Grouped(static_cast<int64_t>(inputs.tick_ms / kTickMs)),
                                    "Event  " + Grouped(static_cast<int64_t>(inputs.events)) + " of " +
                                        Grouped(static_cast<int64_t>(inputs.of_events)),
                                    inputs.last.empty() ? std::string() : "Last  " + inputs.last}) {
        canvas.Text({left, y, 204, 20}, line, theme.font_small, kTextColor);
        y += 20;
    }
}

void PaintHeadline(Canvas& canvas, const Rect& field, std::string_view headline, std::string_view reason) {
    const int middle = field.y + field.h / 2;
    const Rect box = FromEdges(field.x + 12, middle - 44, field.Right() - 12, middle + 44);
    canvas.Fill(box, kFailGroundColor);
    canvas.FrameRoundRect(box, 0, kWarnColor, 2);
    const Rect inside = box.Grown(-6);
    canvas.Text({inside.x, box.y + 10, inside.w, 36}, headline,
                FittedFont(&Theme::font_title, headline, inside.w), kWarnColor, AlignX::kCentre,
                AlignY::kCentre);
    canvas.Text({inside.x, box.y + 50, inside.w, 28}, reason, FittedFont(&Theme::font_body, reason, inside.w),
                kTextColor, AlignX::kCentre, AlignY::kCentre, /*ellipsis=*/true);
}

}  // namespace

Scene SceneAt(Course& course, uint64_t tick_ms, bool with_inputs) {
    Scene scene;
    scene.well.game = course.At(tick_ms);
    scene.well.mode = kModePlaying;
    if (with_inputs) scene.inputs = InputsAt(course, std::min(tick_ms, course.LengthMs()));
    if (tick_ms < course.LengthMs()) return scene;
    switch (course.End()) {
        case CourseEnd::kLost:
            scene.well.mode = kModeGameOver;
            scene.well.final_score = scene.well.game.score;
            break;
        case CourseEnd::kFails:
            scene.headline = "HERE IT FAILS";
            scene.reason = course.EndText();
            break;
        case CourseEnd::kFull:
            scene.headline = "THE TAPE IS FULL";
            scene.reason = "how the run went on, nobody knows";
            break;
    }
    return scene;
}

void PaintScene(Canvas& canvas, Scene scene, uint64_t blink_ms) {
    const CellSize cell = FittedCell(canvas.Extent());
    scene.well.game.cell_w = cell.w;
    scene.well.game.cell_h = cell.h;
    PaintWell(canvas, scene.well, cell, blink_ms);
    const Rect field = WellField(scene.well, cell);
    if (scene.ghost) PaintGhost(canvas, *scene.ghost, cell, kGhostColor);
    if (scene.inputs) PaintInputs(canvas, field, scene.well.game, *scene.inputs);
    if (!scene.headline.empty()) PaintHeadline(canvas, field, scene.headline, scene.reason);
}

std::string SpokenScene(const Scene& scene) {
    std::string spoken(scene.headline);
    if (!spoken.empty()) spoken += ": " + std::string(scene.reason) + ". ";
    if (scene.well.mode == kModeGameOver) spoken += "Game over. ";
    return spoken + "Score " + std::to_string(ShownScore(scene.well)) + ", level " +
           std::to_string(scene.well.game.level) + ", lives " + std::to_string(scene.well.game.lives);
}

std::string PlayedText(uint64_t milliseconds, bool tenths) {
    const auto seconds = milliseconds / 1'000;
    std::array<char, 48> text{};
    if (seconds >= 3'600) {
        std::snprintf(text.data(), text.size(), "%llu:%02llu:%02llu",
                      static_cast<unsigned long long>(seconds / 3'600),
                      static_cast<unsigned long long>(seconds / 60 % 60),
                      static_cast<unsigned long long>(seconds % 60));
    } else {
        std::snprintf(text.data(), text.size(), "%llu:%02llu", static_cast<unsigned long long>(seconds / 60),
                      static_cast<unsigned long long>(seconds % 60));
    }
    std::string played(text.data());
    if (tenths) played += "." + std::to_string(milliseconds % 1'000 / 100);
    return played;
}

}  // namespace brickfall
