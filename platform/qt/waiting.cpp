#include "platform/qt/waiting.h"

#include <QApplication>
#include <QCursor>
#include <QEvent>
#include <optional>
#include <utility>

#include "platform/qt/application.h"
#include "platform/qt/controls.h"
#include "platform/qt/window_widget.h"
#include "platform/qt/x11.h"
#include "platform/window.h"

namespace brickfall {
namespace {

struct Wait {
    WindowId window = 0;
    int control = 0;
    bool had_focus = false;
};
std::optional<Wait> wait;

bool input_dropped = false;

class InputGate : public QObject {
  public:
    bool eventFilter(QObject* object, QEvent* event) override {
        if (!input_dropped || !object->isWindowType()) return false;
        switch (event->type()) {
            case QEvent::MouseButtonPress:
            case QEvent::MouseButtonRelease:
            case QEvent::MouseButtonDblClick:
            case QEvent::Wheel:
            case QEvent::KeyPress:
            case QEvent::KeyRelease:
            case QEvent::TouchBegin:
            case QEvent::TouchUpdate:
            case QEvent::TouchEnd:
            case QEvent::TabletPress:
            case QEvent::TabletRelease:
                return true;
            default:
                return false;
        }
    }
};

}  // namespace

std::unique_ptr<QObject> MakeInputGate() {
    auto gate = std::make_unique<InputGate>();
    qApp->installEventFilter(gate.get());
    return gate;
}

void BeginWait(WindowId window, int control) {
    if (wait) return;
    wait = Wait{window, control, false};
    if (const WindowWidget* const around = FindWindow(window)) {
        wait->had_focus = around->ControlOf(around->window()->focusWidget()) == control;
    }
    EnableWindowControl(window, control, false);
    QGuiApplication::setOverrideCursor(Qt::WaitCursor);
    for (const auto& [id, widget] : State().windows) {
        for (const auto& [number, child] : widget->Controls()) {
            if (dynamic_cast<ClickWidget*>(child) != nullptr) child->repaint();
        }
    }
    FlushToServer();
}

void EndWait() {
    if (!wait) return;
    const Wait ended = *std::exchange(wait, std::nullopt);
    QGuiApplication::restoreOverrideCursor();
    EnableWindowControl(ended.window, ended.control, true);
    if (ended.had_focus) FocusControl(ended.window, ended.control);
    DropCommands();
    const WindowWidget* const widget = FindWindow(ended.window);
    if (widget == nullptr) return;
    input_dropped = true;
    AfterEventsUntilNow(static_cast<quint32>(widget->window()->internalWinId()),
                        [] { input_dropped = false; });
}

}  // namespace brickfall
