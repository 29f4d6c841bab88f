#include "platform/qt/x11.h"

#include <xcb/xcb.h>

#include <QAbstractNativeEventFilter>
#include <QByteArray>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QTimer>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>

#include "platform/qt/wayland.h"

namespace brickfall {
namespace {

constexpr int kLateInputMs = 200;
constexpr int kLostMarkMs = 1'000;  // a mark whose window is gone does not come back

template <typename T>
using Reply = std::unique_ptr<T, void (*)(void*)>;

xcb_connection_t* Connection() {
    const auto* const x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
    return x11 != nullptr ? x11->connection() : nullptr;
}

bool IsKeyCode(quint32 key_code) { return key_code >= 8 && key_code <= 255; }

xcb_atom_t AtomOf(xcb_connection_t* connection, std::string_view name) {
    const Reply<xcb_intern_atom_reply_t> reply(
        xcb_intern_atom_reply(connection,
                              xcb_intern_atom(connection, 0, static_cast<uint16_t>(name.size()), name.data()),
                              nullptr),
        std::free);
    return reply != nullptr ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
}

class Watch : public QAbstractNativeEventFilter {
  public:
    Watch(xcb_connection_t* connection, std::function<void(quint32)> framed)
        : frame_extents_(AtomOf(connection, "_NET_FRAME_EXTENTS")),
          mark_(AtomOf(connection, "_BRICKFALL_MARK")),
          framed_(std::move(framed)) {}

    bool nativeEventFilter(const QByteArray& kind, void* message, qintptr*) override {
        if (kind != "xcb_generic_event_t") return false;
        const auto* const event = static_cast<const xcb_generic_event_t*>(message);
        const int type = event->response_type & 0x7F;
        // The toolkit takes its own note of either after this.
        if (type == XCB_PROPERTY_NOTIFY) {
            const auto* const notice = reinterpret_cast<const xcb_property_notify_event_t*>(event);
            if (notice->atom == frame_extents_) {
                QTimer::singleShot(0, qApp, [framed = framed_, window = notice->window] { framed(window); });
            }
        } else if (type == XCB_CLIENT_MESSAGE) {
            const auto* const notice = reinterpret_cast<const xcb_client_message_event_t*>(event);
            if (notice->type == mark_) {  // what came before it is delivered before what is posted now
                QTimer::singleShot(0, qApp, [this, number = notice->data.data32[0]] { Pass(number); });
                return true;
            }
        }
        return false;
    }

    void Mark(xcb_connection_t* connection, quint32 window, std::function<void()> done) {
        done_ = std::move(done);
        xcb_client_message_event_t event{};
        event.response_type = XCB_CLIENT_MESSAGE;
        event.format = 32;
        event.window = window;
        event.type = mark_;
        event.data.data32[0] = ++marks_;
        xcb_send_event(connection, 0, window, XCB_EVENT_MASK_NO_EVENT, reinterpret_cast<const char*>(&event));
        xcb_flush(connection);
        QTimer::singleShot(kLostMarkMs, qApp, [this, number = marks_] { Pass(number); });
    }

  private:
    void Pass(quint32 number) {
        if (number != marks_ || !done_) return;
        std::exchange(done_, nullptr)();
    }

    const xcb_atom_t frame_extents_;
    const xcb_atom_t mark_;
    const std::function<void(quint32)> framed_;
    std::function<void()> done_;
    quint32 marks_ = 0;
};

std::unique_ptr<Watch> watch;

}  // namespace

void StartX11Watch(std::function<void(quint32 window)> framed) {
    xcb_connection_t* const connection = Connection();
    if (connection == nullptr) return;
    watch = std::make_unique<Watch>(connection, std::move(framed));
    qApp->installNativeEventFilter(watch.get());
}

void StopX11Watch() {
    if (watch != nullptr) qApp->removeNativeEventFilter(watch.get());
    watch.reset();
}

std::optional<bool> KeyDownOnServer(quint32 key_code) {
    xcb_connection_t* const connection = Connection();
    if (connection == nullptr || !IsKeyCode(key_code)) return std::nullopt;
    const Reply<xcb_query_keymap_reply_t> reply(
        xcb_query_keymap_reply(connection, xcb_query_keymap(connection), nullptr), std::free);
    if (reply == nullptr) return std::nullopt;
    return (reply->keys[key_code / 8] >> key_code % 8 & 1) != 0;
}

// Latin letters are their own key symbols, in either case.
char LatinLetterOfKey(quint32 key_code) {
    xcb_connection_t* const connection = Connection();
    if (connection == nullptr || !IsKeyCode(key_code)) return 0;
    const Reply<xcb_get_keyboard_mapping_reply_t> reply(
        xcb_get_keyboard_mapping_reply(
            connection, xcb_get_keyboard_mapping(connection, static_cast<xcb_keycode_t>(key_code), 1),
            nullptr),
        std::free);
    if (reply == nullptr) return 0;
    const xcb_keysym_t* const symbols = xcb_get_keyboard_mapping_keysyms(reply.get());
    for (int i = 0; i < xcb_get_keyboard_mapping_keysyms_length(reply.get()); ++i) {
        if (symbols[i] >= 'A' && symbols[i] <= 'Z') return static_cast<char>(symbols[i]);
        if (symbols[i] >= 'a' && symbols[i] <= 'z') return static_cast<char>(symbols[i] - 'a' + 'A');
    }
    return 0;
}

void FlushToServer() {
    if (xcb_connection_t* const connection = Connection()) xcb_flush(connection);
}

void AfterEventsUntilNow(quint32 window, std::function<void()> done) {
    xcb_connection_t* const connection = Connection();
    if (connection != nullptr && watch != nullptr) return watch->Mark(connection, window, std::move(done));
    // A Wayland connection is read by a thread of the toolkit, piece by piece, once the loop turns again.
    QTimer::singleShot(0, qApp, [done = std::move(done)] {
        if (!OnWayland()) return done();
        QTimer::singleShot(kLateInputMs, qApp, done);
    });
}

}  // namespace brickfall
