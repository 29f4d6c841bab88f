#include "platform/qt/application.h"

#include <utility>

#include "platform/qt/events.h"

namespace brickfall {

PlatformState& State() {
    static PlatformState& state = *new PlatformState;
    return state;
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

void CloseMessageBoxes(WindowId owner) {
    for (const OpenBox& open : std::vector<OpenBox>(State().boxes)) {
        const bool is_meant = owner == 0 || open.owner == owner;
        if (is_meant && open.box != nullptr) open.box->done(QDialog::Rejected);
    }
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
