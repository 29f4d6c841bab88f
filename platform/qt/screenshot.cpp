#include <QCoreApplication>
#include <QEventLoop>
#include <QGuiApplication>
#include <QImage>
#include <QPixmap>
#include <QScreen>
#include <cstring>

#include "platform/automation.h"

namespace brickfall {

void WaitMessage() { QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents); }

Image GrabScreen() {
    const QScreen* const screen = QGuiApplication::primaryScreen();
    if (screen == nullptr) return {};
    const QImage shot =
        const_cast<QScreen*>(screen)->grabWindow(0).toImage().convertToFormat(QImage::Format_ARGB32);
    Image image{shot.width(), shot.height(), {}};
    image.pixels.resize(static_cast<std::size_t>(image.w) * static_cast<std::size_t>(image.h));
    for (int y = 0; y < image.h; ++y) {
        std::memcpy(image.pixels.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(image.w),
                    shot.constScanLine(y), static_cast<std::size_t>(image.w) * sizeof(uint32_t));
    }
    return image;
}

}  // namespace brickfall
