#include "cabinet/scrolling.h"

#include <optional>

namespace brickfall {
namespace {

constexpr int kLongestFade = 48;
constexpr int kHiddenPerFade = 3;  // pixels, for each of the fade's

// One column, from the ground's colour on top to nothing, or the other way round.
Image Fade(int height, Color ground, bool downwards) {
    Image fade{1, height, {}};
    const uint32_t rgb = (uint32_t{ground.r} << 16) | (uint32_t{ground.g} << 8) | ground.b;
    for (int y = 0; y < height; ++y) {
        const int shown = downwards ? height - y : y + 1;
        fade.pixels.push_back(static_cast<uint32_t>(shown * 255 / height) << 24 | rgb);
    }
    return fade;
}

int FadeHeight(int hidden) { return std::min(hidden / kHiddenPerFade, kLongestFade); }

std::optional<int> PlaceAfter(const Message& message, const Scrolling& scrolling) {
    if (message.type == MessageType::kWheel) return scrolling.offset + static_cast<int>(message.value);
    if (message.type != MessageType::kKeyDown) return {};
    const int page = std::max(scrolling.step, scrolling.room - scrolling.step);
    switch (message.key) {
        case Key::kUp:
            return scrolling.offset - scrolling.step;
        case Key::kDown:
            return scrolling.offset + scrolling.step;
        case Key::kPageUp:
            return scrolling.offset - page;
        case Key::kPageDown:
            return scrolling.offset + page;
        case Key::kHome:
            return 0;
        case Key::kEnd:
            return scrolling.content;
        default:
            return {};
    }
}

}  // namespace

bool OnScrollMessage(WindowId window, const Message& message, Scrolling& scrolling) {
    const std::optional<int> place = PlaceAfter(message, scrolling);
    if (!place) return false;
    const int before = scrolling.offset;
    scrolling.To(*place);
    if (scrolling.offset != before) InvalidateWindow(window);
    return true;
}

void DrawScrolled(Canvas& canvas, const Rect& room, const Scrolling& scrolling, Color ground,
                  const std::function<void()>& body) {
    canvas.ClipRoundRect(room, 0, body);
    if (const int above = FadeHeight(scrolling.offset); above > 0) {
        canvas.Draw(Fade(above, ground, /*downwards=*/true), {room.x, room.y, room.w, above});
    }
    if (const int below = FadeHeight(scrolling.HiddenBelow()); below > 0) {
        canvas.Draw(Fade(below, ground, /*downwards=*/false), {room.x, room.Bottom() - below, room.w, below});
    }
}

}  // namespace brickfall
