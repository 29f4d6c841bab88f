#include "platform/qt/key_tracker.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QWindow>
#include <array>
#include <memory>
#include <utility>

#include "platform/qt/x11.h"

namespace brickfall {
namespace {

struct NamedKey {
    Key key;
    int toolkit_key;
};
// Where the letter is on a keyboard, as window systems number it.
constexpr quint32 kPlaceOfP = 33;

constexpr NamedKey kKeys[] = {
    {Key::kLeft, Qt::Key_Left},    {Key::kRight, Qt::Key_Right},   {Key::kSpace, Qt::Key_Space},
    {Key::kP, Qt::Key_P},          {Key::kEscape, Qt::Key_Escape}, {Key::kUp, Qt::Key_Up},
    {Key::kDown, Qt::Key_Down},    {Key::kPageUp, Qt::Key_PageUp}, {Key::kPageDown, Qt::Key_PageDown},
    {Key::kHome, Qt::Key_Home},    {Key::kEnd, Qt::Key_End},       {Key::kReturn, Qt::Key_Return},
    {Key::kReturn, Qt::Key_Enter}, {Key::kF11, Qt::Key_F11},
};

struct KeyState {
    bool down = false;        // as the events have it
    quint32 server_code = 0;  // as the window system numbers it; 0 until the first press
};
std::array<KeyState, static_cast<std::size_t>(Key::kOther)> states{};

void NotePress(const QKeyEvent& event) {
    const Key key = KeyOf(event);
    if (key != Key::kOther) states[static_cast<std::size_t>(key)] = {true, event.nativeScanCode()};
}

void NoteRelease(const QKeyEvent& event) {
    const Key key = KeyOf(event);
    if (key != Key::kOther) states[static_cast<std::size_t>(key)].down = false;
}

// For its auto-repeat an X server makes up a release and a press, of the same time. The toolkit knows them
// when it sees both at once; on a busy machine it often does not, and gives them as real. So a release of a
// key that the server holds for down waits for the press behind it, whose time tells. Repeats that still
// stand in the queue when the key is up already say nothing any more, and are dropped.
class KeyTracker : public QObject {
  public:
    bool eventFilter(QObject* object, QEvent* event) override {
        const QEvent::Type type = event->type();
        if (type != QEvent::KeyPress && type != QEvent::KeyRelease) return false;
        if (!object->isWindowType()) return false;  // its way through the widgets is the same event again
        const auto& key_event = *static_cast<QKeyEvent*>(event);
        if (!sending_ && type == QEvent::KeyPress) {
            if (IsLateRepeat(key_event)) return true;
            if (!key_event.isAutoRepeat() && IsRepeatOfHeld(object, key_event)) return true;
        }
        if (!sending_ && type == QEvent::KeyRelease && !key_event.isAutoRepeat()) {
            last_release_ = MomentOf(key_event);
            if (HoldBack(key_event)) return true;
        }
        if (type == QEvent::KeyPress) {
            NotePress(key_event);  // also by an auto-repeat: held when the focus came back
        } else if (!key_event.isAutoRepeat()) {
            NoteRelease(key_event);
        }
        return false;
    }

    void Forget() { held_back_.reset(); }

  private:
    struct Moment {
        quint32 server_code = 0;
        quint64 timestamp = 0;
        bool operator==(const Moment&) const = default;
    };

    static Moment MomentOf(const QKeyEvent& event) { return {event.nativeScanCode(), event.timestamp()}; }

    // The key's own release is on its way.
    bool IsLateRepeat(const QKeyEvent& press) {
        if (!press.isAutoRepeat() && MomentOf(press) != last_release_) return false;
        if (KeyDownOnServer(press.nativeScanCode()).value_or(true)) return false;
        held_back_.reset();
        return true;
    }

    bool HoldBack(const QKeyEvent& release) {
        if (!KeyDownOnServer(release.nativeScanCode()).value_or(false)) return false;
        held_back_.reset(release.clone());
        return true;
    }

    // True when the press has been sent on as what it is.
    bool IsRepeatOfHeld(QObject* object, const QKeyEvent& press) {
        if (held_back_ == nullptr || held_back_->nativeScanCode() != press.nativeScanCode()) return false;
        const std::unique_ptr<QKeyEvent> release = std::move(held_back_);
        sending_ = true;
        const bool is_repeat = release->timestamp() == press.timestamp();
        if (is_repeat) {
            QKeyEvent repeat(QEvent::KeyPress, press.key(), press.modifiers(), press.nativeScanCode(),
                             press.nativeVirtualKey(), press.nativeModifiers(), press.text(),
                             /*autorep=*/true);
            QCoreApplication::sendEvent(object, &repeat);
        } else {  // let go and pressed again, faster than we looked
            QCoreApplication::sendEvent(object, release.get());
        }
        sending_ = false;
        return is_repeat;
    }

    std::unique_ptr<QKeyEvent> held_back_;
    Moment last_release_;   // passed on or held back
    bool sending_ = false;  // our own events, not to be looked at again
};

KeyTracker* tracker_in_use = nullptr;

}  // namespace

std::unique_ptr<QObject> MakeKeyTracker() {
    auto tracker = std::make_unique<KeyTracker>();
    tracker_in_use = tracker.get();
    qApp->installEventFilter(tracker.get());
    QObject::connect(qApp, &QGuiApplication::focusWindowChanged, tracker.get(), [](const QWindow* window) {
        if (window == nullptr) ReleaseAllKeys();
    });
    QObject::connect(qApp, &QGuiApplication::applicationStateChanged, tracker.get(),
                     [](Qt::ApplicationState state) {
                         if (state != Qt::ApplicationActive) ReleaseAllKeys();
                     });
    return tracker;
}

// A letter is known by its Latin meaning: the present layout's, or else, where that writes another script,
// that of another layout of the keyboard, or else the one that its place has on most keyboards.
Key KeyOf(const QKeyEvent& event) {
    for (const NamedKey& named : kKeys) {
        if (named.toolkit_key == event.key()) return named.key;
    }
    constexpr int kLastAscii = 0x7F;
    if (event.key() <= kLastAscii || event.key() >= Qt::Key_Escape) return Key::kOther;
    const char letter = LatinLetterOfKey(event.nativeScanCode());
    const bool is_p = letter != 0 ? letter == 'P' : event.nativeScanCode() == kPlaceOfP;
    return is_p ? Key::kP : Key::kOther;
}

int ToolkitKey(Key key) {
    for (const NamedKey& named : kKeys) {
        if (named.key == key) return named.toolkit_key;
    }
    return Qt::Key_F12;
}

void ReleaseAllKeys() {
    for (KeyState& state : states) state.down = false;
    if (tracker_in_use != nullptr) tracker_in_use->Forget();
}

bool KeyIsDown(Key key) {
    if (key == Key::kOther) return false;
    const KeyState& state = states[static_cast<std::size_t>(key)];
    return KeyDownOnServer(state.server_code).value_or(state.down);
}

}  // namespace brickfall
