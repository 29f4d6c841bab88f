// The platform's start, its message loop and its end.
#include <QAccessible>
#include <QPalette>
#include <QStyleFactory>
#include <utility>

#include "platform/qt/application.h"
#include "platform/qt/controls.h"
#include "platform/qt/desktop_server.h"
#include "platform/qt/events.h"
#include "platform/qt/font.h"
#include "platform/qt/key_tracker.h"
#include "platform/qt/picture.h"
#include "platform/qt/waiting.h"
#include "platform/qt/window_widget.h"
#include "platform/qt/x11.h"
#include "platform/window.h"

namespace brickfall {
namespace {

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

}  // namespace brickfall
