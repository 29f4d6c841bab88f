#include "cabinet/tool_window.h"

#include <algorithm>
#include <utility>

#include "cabinet/controls.h"
#include "cabinet/theme.h"

namespace brickfall {

namespace {

// A page that is larger than the desktop has room for is shown smaller as a whole, so that its Close button,
// and every line of it, stays on the screen.
double FactorOf(Size page, Size room) {
    return std::min({1.0, static_cast<double>(room.w) / page.w, static_cast<double>(room.h) / page.h});
}

Size Scaled(Size size, double factor) {
    return {static_cast<int>(size.w * factor), static_cast<int>(size.h * factor)};
}

void PaintSmaller(WindowId window, Message& message, Size page, const WindowProcedure& procedure) {
    const Image image = DrawToImage(
        page,
        [&](Canvas& canvas) {
            Message whole{.type = MessageType::kPaint, .size = page, .canvas = &canvas};
            procedure(window, whole);
        },
        /*scale=*/2);
    message.canvas->Draw(image, {0, 0, message.size.w, message.size.h});
}

}  // namespace

void DressWindow(WindowId window) { SetTitleBarColors(window, kHeaderColor, kBorderColor, kTextColor); }

std::string Spoken(std::span<const std::string_view> lines) {
    std::string spoken;
    for (const std::string_view line : lines) {
        if (!spoken.empty()) spoken += '\n';
        spoken += line;
    }
    return spoken;
}

WindowId OpenToolWindow(WindowId owner, const ToolWindowOptions& options, WindowProcedure procedure) {
    const Size frame = FrameSize(owner);  // as large as its own will be
    const Rect work = MonitorOf(owner).work;
    const Size whole =
        options.size_is_client ? options.size : Size{options.size.w - frame.w, options.size.h - frame.h};
    const Size room = {work.w - frame.w, work.h - frame.h};
    const double factor = FactorOf({whole.w, options.scrolls ? 1 : whole.h}, room);
    const Size page = {whole.w, std::min(whole.h, static_cast<int>(room.h / factor))};
    const bool is_smaller = factor < 1;
    const int missing = whole.h - page.h;
    const bool is_whole = !is_smaller && missing == 0;
    const WindowOptions window = {.title = options.title,
                                  .size = is_whole ? options.size : Scaled(page, factor),
                                  .size_is_client = options.size_is_client || !is_whole,
                                  .resizable = false,
                                  .owner = owner,
                                  .background = kBgColor};
    return OpenWindow(window, [options, page, factor, is_smaller, missing, procedure = std::move(procedure)](
                                  WindowId id, Message& message) {
        if (message.type == MessageType::kCreate) {
            DressWindow(id);
            SetAccessibleWindowName(id, options.title, options.spoken);
            message.value = missing;
        }
        if (message.type == MessageType::kPaint && is_smaller) {
            PaintSmaller(id, message, page, procedure);
            return true;
        }
        const bool handled = procedure(id, message);
        if (message.type == MessageType::kCreate && is_smaller) ScaleControls(id, factor);
        if (handled) return true;
        if (message.type != MessageType::kPaintButton) return false;
        PaintButton(id, message);
        return true;
    });
}

}  // namespace brickfall
