#include "platform/qt/wayland.h"

#include <QGuiApplication>

namespace brickfall {
namespace {

// One panel at the top or bottom, and one at a side. On which ones does not matter: the compositor finds the
// place.
constexpr int kUntoldPanelHeight = 64;
constexpr int kUntoldPanelWidth = 80;

}  // namespace

bool OnWayland() { return QGuiApplication::platformName().startsWith(QLatin1String("wayland")); }

QRect WithoutUntoldPanels(const QRect& screen) {
    return screen.adjusted(kUntoldPanelWidth / 2, kUntoldPanelHeight / 2, -kUntoldPanelWidth / 2,
                           -kUntoldPanelHeight / 2);
}

}  // namespace brickfall
