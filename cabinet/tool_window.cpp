#include "cabinet/tool_window.h"

#include <utility>

#include "cabinet/controls.h"
#include "cabinet/images.h"
#include "cabinet/theme.h"

namespace brickfall {

void DressWindow(WindowId window) {
    SetTitleBarColors(window, kHeaderColor, kBorderColor, kTextColor);
    Image big = MakeIcon(32);
    if (big.Empty()) big = StoredIcon(32);
    const Image small = MakeIcon(16);
    SetWindowIcons(window, big, small.Empty() ? big : small);
}

std::string Spoken(std::span<const std::string_view> lines) {
    std::string spoken;
    for (const std::string_view line : lines) {
        if (!spoken.empty()) spoken += '\n';
        spoken += line;
    }
    return spoken;
}

WindowId OpenToolWindow(WindowId owner, const ToolWindowOptions& options, WindowProcedure procedure) {
    const WindowOptions window = {.title = options.title,
                                  .size = options.size,
                                  .size_is_client = options.size_is_client,
                                  .resizable = false,
                                  .owner = owner,
                                  .background = kBgColor};
    return OpenWindow(window, [options, procedure = std::move(procedure)](WindowId id, Message& message) {
        if (message.type == MessageType::kCreate) {
            DressWindow(id);
            SetAccessibleWindowName(id, options.title, options.spoken);
        }
        if (procedure(id, message)) return true;
        if (message.type != MessageType::kPaintButton) return false;
        PaintButton(id, message);
        return true;
    });
}

}  // namespace brickfall
