// application.h - the state of the platform: which windows there are, what is posted to them, and what has to
// wait until no procedure runs. The live ids and the receiver are guarded by `mutex`; the rest belongs to the
// main thread. Never destroyed, since workers outlive main.
#pragma once

#include <QApplication>
#include <QDialog>
#include <QPointer>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "platform/window.h"

namespace brickfall {

class WindowWidget;

struct OpenBox {
    WindowId owner = 0;
    QPointer<QDialog> box;
};

struct PlatformState {
    std::mutex mutex;
    std::unordered_set<WindowId> live;
    QObject* receiver = nullptr;  // of posted messages

    std::unique_ptr<QApplication> application;
    std::unique_ptr<QObject> input_gate;
    std::unique_ptr<QObject> key_tracker;
    std::unique_ptr<QObject> posted_receiver;
    std::unique_ptr<QObject> command_receiver;  // apart, so that clicks can be brought through alone
    std::map<WindowId, WindowWidget*> windows;
    WindowId last_id = 0;

    int procedures_running = 0;
    std::vector<OpenBox> boxes;             // message boxes on show
    std::vector<QPointer<QWidget>> buried;  // gone windows, deleted when no procedure runs

    std::optional<std::vector<std::string>> spoken;  // collected once somebody asks

    bool loop_running = false;
    bool quitting = false;
    int exit_code = 0;
    bool focus_pretended_lost = false;
};

PlatformState& State();

WindowWidget* FindWindow(WindowId window);

// As refused: those of an owner, or all with 0.
void CloseMessageBoxes(WindowId owner = 0);

// Deletes the widget as soon as no procedure and no message box is on the stack.
void Bury(QWidget* widget);

class ProcedureScope {
  public:
    ProcedureScope();
    ~ProcedureScope();
    ProcedureScope(const ProcedureScope&) = delete;
    ProcedureScope& operator=(const ProcedureScope&) = delete;
};

// A click becomes a command in a later turn, so that its handler may destroy the control.
void PostCommand(WindowId window, int control);
void DeliverCommands();
void DropCommands();

bool ApplicationActive();

}  // namespace brickfall
