#include "platform/qt/application.h"

#include <QAccessible>
#include <QEvent>
#include <QPalette>
#include <QStyleFactory>
#include <utility>

#include "platform/qt/controls.h"
#include "platform/qt/desktop_server.h"
#include "platform/qt/font.h"
#include "platform/qt/key_tracker.h"
#include "platform/qt/message_boxes.h"
#include "platform/qt/picture.h"
#include "platform/qt/waiting.h"
#include "platform/qt/window_widget.h"
#include "platform/qt/x11.h"

namespace brickfall {
namespace {

constexpr auto kPostedEvent = static_cast<QEvent::Type>(QEvent::User + 1);
constexpr auto kCommandEvent = static_cast<QEvent::Type>(QEvent::User + 2);

// Owns the payload: an event that nobody gets frees it.
struct PostedEvent : QEvent {
    PostedEvent(WindowId to, int number_in, int64_t value_in, std::unique_ptr<Payload> payload_in)
        : QEvent(kPostedEvent),
          window(to),
          number(number_in),
          value(value_in),
          payload(std::move(payload_in)) {}
    WindowId window;
    int number;
    int64_t value;
    std::unique_ptr<Payload> payload;
};

struct CommandEvent : QEvent {
    CommandEvent(WindowId to, int control_in) : QEvent(kCommandEvent), window(to), control(control_in) {}
    WindowId window;
    int control;
};

class Receiver : public QObject {
  public:
    bool event(QEvent* event) override {
        // Whoever has posted held this lock, so what it wrote is seen from here on.
        { const std::scoped_lock lock(State().mutex); }
        Message message{};
        WindowId to = 0;
        if (event->type() == kPostedEvent) {
            auto* const posted = static_cast<PostedEvent*>(event);
            to = posted->window;
            message.type = MessageType::kPosted;
            message.id = posted->number;
            message.value = posted->value;
            message.payload = std::move(posted->payload);
        } else if (event->type() == kCommandEvent) {
            const auto* const command = static_cast<CommandEvent*>(event);
            to = command->window;
            message.type = MessageType::kCommand;
            message.id = command->control;
        } else {
            return QObject::event(event);
        }
        if (WindowWidget* const window = FindWindow(to)) window->Dispatch(message);
        return true;
    }
};

QPalette DarkPalette() {
    const QColor ground(0x0C, 0x16, 0x12);
    const QColor deep(0x06, 0x0C, 0x0A);
    const QColor raised(0x14, 0x2A, 0x20);
    const QColor text(0xDC, 0xF0, 0xE4);
    const QColor faint(0x60, 0x8C, 0x74);
    const QColor accent(0x38, 0xD4, 0x8C);
    QPalette palette(raised, ground);
    palette.setColor(QPalette::Window, ground);
    palette.setColor(QPalette::WindowText, text);
    palette.setColor(QPalette::Base, deep);
    palette.setColor(QPalette::AlternateBase, ground);
    palette.setColor(QPalette::Text, text);
    palette.setColor(QPalette::PlaceholderText, faint);
    palette.setColor(QPalette::Button, raised);
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::BrightText, Qt::white);
    palette.setColor(QPalette::ToolTipBase, ground);
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::Link, accent);
    palette.setColor(QPalette::Highlight, accent);
    palette.setColor(QPalette::HighlightedText, deep);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
        palette.setColor(QPalette::Disabled, role, faint);
    }
    palette.setColor(QPalette::Disabled, QPalette::Highlight, faint);
    return palette;
}

}  // namespace

PlatformState& State() {
    static PlatformState& state = *new PlatformState;
    return state;
}

Platform::Platform(int& argument_count, char** arguments) {
    PlatformState& state = State();
    PrepareDecoders();
    OpenDecoders();
    QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
    state.application = std::make_unique<QApplication>(argument_count, arguments);
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QApplication::setPalette(DarkPalette());
    QApplication::setQuitOnLastWindowClosed(false);
    InstallAccessibility();
    state.input_gate = MakeInputGate();  // before the tracker, which sees also what the gate drops
    state.key_tracker = MakeKeyTracker();
    StartX11Watch([](quint32 handle) {
        for (const auto& [id, window] : State().windows) {
            if (window->internalWinId() == handle) return window->Settle();
        }
    });
    state.posted_receiver = std::make_unique<Receiver>();
    state.command_receiver = std::make_unique<Receiver>();
    const std::scoped_lock lock(state.mutex);
    state.receiver = state.posted_receiver.get();
}

Platform::~Platform() {
    PlatformState& state = State();
    CloseDecoders();
    {
        const std::scoped_lock lock(state.mutex);
        state.receiver = nullptr;
        state.live.clear();
    }
    ReleaseWindowClasses();
    const auto windows = std::exchange(state.windows, {});
    for (const auto& [id, window] : windows) window->Forget();
    for (const auto& [id, window] : windows) {
        if (window->parentWidget() == nullptr) Bury(window);
    }
    state.posted_receiver.reset();  // frees what is still posted
    state.command_receiver.reset();
    StopX11Watch();
    state.key_tracker.reset();
    state.input_gate.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    ForgetLayouts();
    RemoveAccessibility();
    state.application.reset();
}

int RunMessageLoop() {
    PlatformState& state = State();
    if (!state.quitting) {
        state.loop_running = true;
        QApplication::exec();
        state.loop_running = false;
    }
    state.quitting = false;
    return state.exit_code;
}

void QuitMessageLoop(int code) {
    PlatformState& state = State();
    state.quitting = true;
    state.exit_code = code;
    CloseMessageBoxes();
    if (state.loop_running)
        QCoreApplication::exit(code);  // out of it, it would keep later loops from running
}

bool PostWindowMessage(WindowId window, int number, int64_t value, std::unique_ptr<Payload> payload) {
    auto event = std::make_unique<PostedEvent>(window, number, value, std::move(payload));
    PlatformState& state = State();
    const std::scoped_lock lock(state.mutex);
    if (state.receiver == nullptr || !state.live.contains(window)) return false;
    QCoreApplication::postEvent(state.receiver, event.release());
    return true;
}

bool WindowExists(WindowId window) {
    PlatformState& state = State();
    const std::scoped_lock lock(state.mutex);
    return state.live.contains(window);
}

WindowWidget* FindWindow(WindowId window) {
    const auto& windows = State().windows;
    const auto found = windows.find(window);
    return found != windows.end() ? found->second : nullptr;
}

void Bury(QWidget* widget) {
    widget->hide();
    if (State().procedures_running == 0) {
        widget->deleteLater();
    } else {
        State().buried.emplace_back(widget);
    }
}

ProcedureScope::ProcedureScope() { ++State().procedures_running; }

ProcedureScope::~ProcedureScope() {
    if (--State().procedures_running > 0) return;
    for (const QPointer<QWidget>& widget : std::exchange(State().buried, {})) {
        if (widget != nullptr) widget->deleteLater();
    }
}

void PostCommand(WindowId window, int control) {
    QCoreApplication::postEvent(State().command_receiver.get(), new CommandEvent(window, control));
}

void DeliverCommands() { QCoreApplication::sendPostedEvents(State().command_receiver.get()); }

void DropCommands() { QCoreApplication::removePostedEvents(State().command_receiver.get()); }

bool ApplicationActive() { return !State().focus_pretended_lost && QApplication::activeWindow() != nullptr; }

}  // namespace brickfall
