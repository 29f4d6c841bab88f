#include "platform/automation.h"

#include <QAccessible>
#include <QAccessibleInterface>
#include <QClipboard>
#include <QCloseEvent>
#include <QCursor>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPixmap>
#include <QPointer>
#include <QTextDocumentFragment>
#include <QWheelEvent>
#include <QWindow>
#include <cmath>
#include <utility>

#include "platform/qt/application.h"
#include "platform/qt/convert.h"
#include "platform/qt/key_tracker.h"
#include "platform/qt/picture.h"
#include "platform/qt/window_widget.h"

namespace brickfall {
namespace {

constexpr int kPumpRounds = 3;  // what a message sets off is due as well

QWindow* HandleOf(WindowId window) {
    const WindowWidget* const widget = FindWindow(window);
    return widget != nullptr ? widget->window()->windowHandle() : nullptr;
}

void SendKey(QWindow* handle, QEvent::Type type, int key, Qt::KeyboardModifiers modifiers,
             const QString& text, bool is_repeat) {
    if (handle == nullptr || State().focus_pretended_lost) return;
    QKeyEvent event(type, key, modifiers, text, is_repeat);
    QCoreApplication::sendEvent(handle, &event);
}

void StrokeKey(int key, const QString& text, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
    SendKey(QGuiApplication::focusWindow(), QEvent::KeyPress, key, modifiers, text, false);
    SendKey(QGuiApplication::focusWindow(), QEvent::KeyRelease, key, modifiers, text, false);
}

void SendPointer(WindowId window, QEvent::Type type, Point at, Qt::MouseButton button,
                 Qt::MouseButtons buttons) {
    const WindowWidget* const widget = FindWindow(window);
    QWindow* const handle = HandleOf(window);
    if (handle == nullptr) return;
    const QPointF local = widget->mapTo(widget->window(), QPointF(at.x, at.y));
    const QPointF global = handle->mapToGlobal(local);
    QMouseEvent event(type, local, local, global, button, buttons, Qt::NoModifier);
    QCoreApplication::sendEvent(handle, &event);
}

QAccessibleInterface* AccessOf(WindowId window, int id) {
    const WindowWidget* const widget = FindWindow(window);
    QWidget* const control = widget != nullptr ? widget->Control(id) : nullptr;
    return control != nullptr ? QAccessible::queryAccessibleInterface(control) : nullptr;
}

QString TextOf(Key key) {
    if (key == Key::kSpace) return QStringLiteral(" ");
    if (key == Key::kP) return QStringLiteral("p");
    return {};
}

QPointer<QWidget>& WindowBeforeLoss() {
    static auto& window = *new QPointer<QWidget>;
    return window;
}

Qt::MouseButtons held_buttons = Qt::NoButton;

}  // namespace

void PumpMessages() {
    for (int round = 0; round < kPumpRounds; ++round) {
        QCoreApplication::processEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
}

void FireTimer(WindowId window, int timer) {
    if (!TimerRunning(window, timer)) return;
    Message message{.type = MessageType::kTimer, .id = timer};
    FindWindow(window)->Dispatch(message);
}

bool TimerRunning(WindowId window, int timer) {
    const WindowWidget* const widget = FindWindow(window);
    if (widget == nullptr) return false;
    const auto found = widget->timers.find(timer);
    return found != widget->timers.end() && found->second->isActive();
}

void PressKey(WindowId window, Key key, bool is_repeat) {
    SendKey(HandleOf(window), QEvent::KeyPress, ToolkitKey(key), Qt::NoModifier, TextOf(key), is_repeat);
}

void ReleaseKey(WindowId window, Key key, bool made_up_by_repeat) {
    SendKey(HandleOf(window), QEvent::KeyRelease, ToolkitKey(key), Qt::NoModifier, TextOf(key),
            made_up_by_repeat);
}

void StrokeKey(Key key) { StrokeKey(ToolkitKey(key), TextOf(key)); }

void PressTab(bool backwards) {
    StrokeKey(backwards ? Qt::Key_Backtab : Qt::Key_Tab, QStringLiteral("\t"),
              backwards ? Qt::ShiftModifier : Qt::NoModifier);
}

void TypeText(std::string_view text) {
    const QString units = ToQString(text);
    for (qsizetype at = 0; at < units.size(); ++at) {
        if (units[at] == QLatin1Char('\n')) {
            StrokeKey(Qt::Key_Return, QStringLiteral("\r"));
            continue;
        }
        const qsizetype length = units[at].isHighSurrogate() && at + 1 < units.size() ? 2 : 1;
        const int key =
            units[at].unicode() < 0x80 ? int{units[at].toUpper().unicode()} : int{Qt::Key_unknown};
        StrokeKey(key, units.mid(at, length));
        at += length - 1;
    }
}

void PasteText(std::string_view text) {
    QGuiApplication::clipboard()->setText(ToQString(text));
    PressControl('V');
}

void PressControl(char letter) {
    // A control key makes a control character, as window systems have it.
    StrokeKey(letter, QString(QChar(letter & 0x1F)), Qt::ControlModifier);
}

void MovePointer(WindowId window, Point at) {
    SendPointer(window, QEvent::MouseMove, at, Qt::NoButton, held_buttons);
}

void PressPointer(WindowId window, Point at) {
    MovePointer(window, at);
    held_buttons = Qt::LeftButton;
    SendPointer(window, QEvent::MouseButtonPress, at, Qt::LeftButton, held_buttons);
}

void ReleasePointer(WindowId window, Point at) {
    MovePointer(window, at);
    held_buttons = Qt::NoButton;
    SendPointer(window, QEvent::MouseButtonRelease, at, Qt::LeftButton, held_buttons);
}

void TurnWheel(WindowId window, double notches, int pixels) {
    QWindow* const handle = HandleOf(window);
    if (handle == nullptr) return;
    const QPointF middle(handle->width() / 2.0, handle->height() / 2.0);
    QWheelEvent event(middle, handle->mapToGlobal(middle), {0, pixels},
                      {0, static_cast<int>(std::lround(notches * 120))}, Qt::NoButton, Qt::NoModifier,
                      Qt::NoScrollPhase, /*inverted=*/false);
    QCoreApplication::sendEvent(handle, &event);
}

void ClickControl(WindowId window, int id) {
    const Rect rect = ControlRect(window, id);
    const Point middle = {rect.x + rect.w / 2, rect.y + rect.h / 2};
    PressPointer(window, middle);
    ReleasePointer(window, middle);
    DeliverCommands();
}

bool PointerWaits() {
    const QCursor* const cursor = QGuiApplication::overrideCursor();
    return cursor != nullptr && cursor->shape() == Qt::WaitCursor;
}

void PretendFocusLost(bool lost) {
    if (lost == State().focus_pretended_lost) return;
    if (lost) {
        WindowBeforeLoss() = QApplication::activeWindow();
        QApplication::setActiveWindow(nullptr);
        ReleaseAllKeys();
    }
    State().focus_pretended_lost = lost;
    if (!lost && WindowBeforeLoss() != nullptr) QApplication::setActiveWindow(WindowBeforeLoss());
}

bool CloseByFrame(WindowId window) {
    if (QWindow* const handle = HandleOf(window)) {
        QCloseEvent event;
        QCoreApplication::sendEvent(handle, &event);
    }
    return !WindowExists(window);
}

Image GrabWindow(WindowId window) {
    WindowWidget* const widget = FindWindow(window);
    return widget != nullptr ? FromQImage(widget->grab().toImage()) : Image();
}

Image GrabMessageBox() {
    QWidget* const box = State().boxes.empty() ? nullptr : State().boxes.back().box.data();
    return box != nullptr ? FromQImage(box->grab().toImage()) : Image();
}

Rect ControlRect(WindowId window, int id) {
    const WindowWidget* const widget = FindWindow(window);
    const QWidget* const control = widget != nullptr ? widget->Control(id) : nullptr;
    return control != nullptr ? FromQRect(control->geometry()) : Rect{};
}

bool ControlEnabled(WindowId window, int id) {
    const WindowWidget* const widget = FindWindow(window);
    const QWidget* const control = widget != nullptr ? widget->Control(id) : nullptr;
    return control != nullptr && control->isEnabled();
}

bool ControlExists(WindowId window, int id) {
    const WindowWidget* const widget = FindWindow(window);
    return widget != nullptr && widget->Control(id) != nullptr;
}

int FocusedControl(WindowId window) {
    const WindowWidget* const widget = FindWindow(window);
    return widget != nullptr ? widget->ControlOf(widget->window()->focusWidget()) : 0;
}

std::string AccessibleRole(WindowId window, int id) {
    QAccessibleInterface* const access = AccessOf(window, id);
    switch (access != nullptr ? access->role() : QAccessible::NoRole) {
        case QAccessible::Link:
            return "link";
        case QAccessible::StaticText:
            return "text";
        case QAccessible::Button:
            return "button";
        case QAccessible::Notification:
            return "notification";
        default:
            return {};
    }
}

std::string AccessibleName(WindowId window, int id) {
    QAccessibleInterface* const access = AccessOf(window, id);
    return access != nullptr ? access->text(QAccessible::Name).toStdString() : std::string();
}

std::string AccessibleDescription(WindowId window, int id) {
    WindowWidget* const widget = FindWindow(window);
    QAccessibleInterface* const access = id != 0             ? AccessOf(window, id)
                                         : widget != nullptr ? QAccessible::queryAccessibleInterface(widget)
                                                             : nullptr;
    return access != nullptr ? access->text(QAccessible::Description).toStdString() : std::string();
}

std::vector<std::string> TakeSpoken() {
    return std::exchange(State().spoken, std::vector<std::string>()).value_or(std::vector<std::string>());
}

std::string ToolTip(WindowId window, int id) {
    const WindowWidget* const widget = FindWindow(window);
    const QWidget* const control = widget != nullptr ? widget->Control(id) : nullptr;
    if (control == nullptr) return {};
    return QTextDocumentFragment::fromHtml(control->toolTip()).toPlainText().toStdString();
}

std::string WindowTitle(WindowId window) {
    const WindowWidget* const widget = FindWindow(window);
    return widget != nullptr ? widget->windowTitle().toStdString() : std::string();
}

Rect ChildRect(WindowId child) {
    const WindowWidget* const widget = FindWindow(child);
    return widget != nullptr ? FromQRect(widget->geometry()) : Rect{};
}

Size MinimumClientSize(WindowId window) {
    const WindowWidget* const widget = FindWindow(window);
    return widget != nullptr ? FromQSize(widget->minimumSize()) : Size{};
}

}  // namespace brickfall
