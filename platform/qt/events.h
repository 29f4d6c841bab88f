// events.h - what travels to a window through the toolkit's queue: a posted message and a command.
#pragma once

#include <QEvent>
#include <cstdint>
#include <memory>
#include <utility>

#include "platform/window.h"

namespace brickfall {

inline constexpr auto kPostedEvent = static_cast<QEvent::Type>(QEvent::User + 1);
inline constexpr auto kCommandEvent = static_cast<QEvent::Type>(QEvent::User + 2);

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

}  // namespace brickfall
