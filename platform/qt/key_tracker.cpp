#include "platform/qt/key_tracker.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QWindow>
#include <array>

namespace brickfall {
namespace {

struct NamedKey {
    Key key;
    int toolkit_key;
};
constexpr NamedKey kKeys[] = {
    {Key::kLeft, Qt::Key_Left}, {Key::kRight, Qt::Key_Right},   {Key::kSpace, Qt::Key_Space},
    {Key::kP, Qt::Key_P},       {Key::kEscape, Qt::Key_Escape},
};

std::array<bool, static_cast<std::size_t>(Key::kOther)> down{};

void SetDown(Key key, bool is_down) {
    if (key != Key::kOther) down[static_cast<std::size_t>(key)] = is_down;
}

class KeyTracker : public QObject {
  public:
    bool eventFilter(QObject* object, QEvent* event) override {
        const QEvent::Type type = event->type();
        if (type != QEvent::KeyPress && type != QEvent::KeyRelease) return false;
        if (!object->isWindowType()) return false;  // its way through the widgets is the same event again
        const auto* const key_event = static_cast<QKeyEvent*>(event);
        const Key key = KeyOf(key_event->key());
        if (type == QEvent::KeyPress) {
            SetDown(key, true);  // also by an auto-repeat: it was held when the focus came back
        } else if (!key_event->isAutoRepeat()) {
            SetDown(key, false);
        }
        return false;
    }
};

}  // namespace

std::unique_ptr<QObject> MakeKeyTracker() {
    auto tracker = std::make_unique<KeyTracker>();
    qApp->installEventFilter(tracker.get());
    QObject::connect(qApp, &QGuiApplication::focusWindowChanged, tracker.get(), [](QWindow* window) {
        if (window == nullptr) ReleaseAllKeys();
    });
    QObject::connect(qApp, &QGuiApplication::applicationStateChanged, tracker.get(),
                     [](Qt::ApplicationState state) {
                         if (state != Qt::ApplicationActive) ReleaseAllKeys();
                     });
    return tracker;
}

Key KeyOf(int toolkit_key) {
    for (const NamedKey& named : kKeys) {
        if (named.toolkit_key == toolkit_key) return named.key;
    }
    return Key::kOther;
}

int ToolkitKey(Key key) {
    for (const NamedKey& named : kKeys) {
        if (named.key == key) return named.toolkit_key;
    }
    return Qt::Key_F12;
}

void ReleaseAllKeys() { down.fill(false); }

bool KeyIsDown(Key key) { return key != Key::kOther && down[static_cast<std::size_t>(key)]; }

}  // namespace brickfall
