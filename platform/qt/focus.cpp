#include "platform/focus.h"

#include <QAbstractSlider>
#include <QKeyEvent>
#include <QPlainTextEdit>
#include <QPointer>
#include <cstdlib>
#include <limits>

#include "platform/qt/application.h"
#include "platform/qt/window_widget.h"

namespace brickfall {
namespace {

QWidget* ActiveWidget() { return ApplicationActive() ? QApplication::activeWindow() : nullptr; }

QWidget* FocusedIn(QWidget* window) {
    QWidget* const focused = window->focusWidget();
    return focused != nullptr ? focused : window;
}

// To the widget itself: the watch over the keyboard's keys is not to see it.
void Stroke(QWidget* to, int key, const QString& text = {}) {
    const QPointer<QWidget> receiver = to;
    for (const auto type : {QEvent::KeyPress, QEvent::KeyRelease}) {
        QKeyEvent event(type, key, Qt::NoModifier, text);
        if (receiver != nullptr) QCoreApplication::sendEvent(receiver, &event);
    }
}

int ArrowKey(Direction direction) {
    switch (direction) {
        case Direction::kLeft:
            return Qt::Key_Left;
        case Direction::kRight:
            return Qt::Key_Right;
        case Direction::kUp:
            return Qt::Key_Up;
        case Direction::kDown:
            return Qt::Key_Down;
    }
    return Qt::Key_unknown;
}

// How far `to` is from `from` that way; nothing when it does not lie that way. Left and right stay within a
// row; up and down sooner go aside than pass over a row.
std::optional<int> FarnessOf(const QRect& from, const QRect& to, Direction direction) {
    constexpr int kRowWeight = 4;
    const QPoint step = to.center() - from.center();
    const bool same_row = from.top() <= to.bottom() && to.top() <= from.bottom();
    const bool is_level = direction == Direction::kLeft || direction == Direction::kRight;
    const bool forward = direction == Direction::kRight || direction == Direction::kDown;
    const int ahead = (is_level ? step.x() : step.y()) * (forward ? 1 : -1);
    if (ahead <= 0 || same_row != is_level) return std::nullopt;
    return is_level ? ahead : kRowWeight * ahead + std::abs(step.x());
}

}  // namespace

std::optional<WindowId> ActiveWindow() {
    const QWidget* const active = ActiveWidget();
    if (active == nullptr) return std::nullopt;
    const auto* const window = dynamic_cast<const WindowWidget*>(active);
    return window != nullptr ? window->Id() : 0;
}

void MoveFocus(Direction direction) {
    QWidget* const window = ActiveWidget();
    if (window == nullptr) return;
    QWidget* const focused = FocusedIn(window);
    if (focused == window) return Stroke(window, Qt::Key_Tab, QStringLiteral("\t"));
    auto* const slider = qobject_cast<QAbstractSlider*>(focused);
    if (slider != nullptr && (direction == Direction::kLeft || direction == Direction::kRight)) {
        return slider->triggerAction(direction == Direction::kRight ? QAbstractSlider::SliderPageStepAdd
                                                                    : QAbstractSlider::SliderPageStepSub);
    }
    const auto place_of = [window](const QWidget* widget) {
        return QRect(widget->mapTo(window, QPoint()), widget->size());
    };
    const QRect from = place_of(focused);
    QWidget* nearest = nullptr;
    int least = std::numeric_limits<int>::max();
    for (QWidget* const widget : window->findChildren<QWidget*>()) {
        const bool can_take = widget->window() == window && widget->isVisible() && widget->isEnabled() &&
                              (widget->focusPolicy() & Qt::TabFocus) != 0;
        if (!can_take) continue;
        const int farness = FarnessOf(from, place_of(widget), direction).value_or(least);
        if (farness >= least) continue;
        least = farness;
        nearest = widget;
    }
    if (nearest != nullptr) return nearest->setFocus(Qt::TabFocusReason);
    // Not the button of a box, which would pass the focus on to any other.
    if (ActiveWindow() != WindowId{0}) Stroke(window, ArrowKey(direction));
}

void PressFocused() {
    QWidget* const window = ActiveWidget();
    if (window == nullptr) return;
    QWidget* const focused = FocusedIn(window);
    const bool is_edit = qobject_cast<QPlainTextEdit*>(focused) != nullptr;
    if (!is_edit && focused != window) Stroke(focused, Qt::Key_Space, QStringLiteral(" "));
}

void CloseActive() {
    QWidget* const window = ActiveWidget();
    if (window != nullptr) Stroke(FocusedIn(window), Qt::Key_Escape);
}

}  // namespace brickfall
