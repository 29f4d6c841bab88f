#include "platform/qt/window_widget.h"

#include <QCloseEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QWindow>
#include <algorithm>
#include <utility>
#include <vector>

#include "platform/qt/application.h"
#include "platform/qt/convert.h"
#include "platform/qt/key_tracker.h"
#include "platform/qt/painter_canvas.h"
#include "platform/qt/wayland.h"

namespace brickfall {
namespace {

constexpr int kQuietMs = 300;  // no move for so long: the user has let go
constexpr int kFrameLookMs = 50;
constexpr int kWishLookMs = 250;
constexpr int kWishTries = 8;

// Frames seen on earlier windows, by kind: fixed in size, and resizable.
QMargins seen_frames[2];

constexpr Qt::WindowFlags kFixedFlags = Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                                        Qt::WindowSystemMenuHint | Qt::WindowCloseButtonHint;

QSize Shrunk(QSize size, const QMargins& frame) {
    return {std::max(1, size.width() - frame.left() - frame.right()),
            std::max(1, size.height() - frame.top() - frame.bottom())};
}

// A frame that the window manager is just making is still smaller than the window, and its margins negative.
bool IsInTheMaking(const QMargins& frame) {
    return std::min({frame.left(), frame.top(), frame.right(), frame.bottom()}) < 0;
}

bool IsMissing(const QMargins& frame) { return frame.isNull() || IsInTheMaking(frame); }

}  // namespace

WindowWidget::WindowWidget(WindowId id, const WindowOptions& options, QWidget* owner,
                           WindowProcedure procedure)
    : QWidget(owner, options.resizable ? Qt::WindowFlags(Qt::Window) : kFixedFlags),
      id_(id),
      top_level_(true),
      resizable_(options.resizable),
      background_(options.background),
      procedure_(std::move(procedure)) {
    Prepare();
    setWindowTitle(ToQString(options.title));
    winId();  // the frame is asked of a real window
    connect(windowHandle(), &QWindow::screenChanged, this, [this] { FitScreen(); });
    if (options.size_is_client) {
        SetClientSize({options.size.w, options.size.h});
    } else {
        SetOuterSize(options.size);
    }
    quiet_.setSingleShot(true);
    quiet_.setInterval(kQuietMs);
    wish_look_.setSingleShot(true);
    wish_look_.setInterval(kWishLookMs);
    connect(&wish_look_, &QTimer::timeout, this, [this] { LookAtWishes(); });
    state_look_.setSingleShot(true);
    state_look_.setInterval(kWishLookMs);
    connect(&state_look_, &QTimer::timeout, this, [this] { LookAtState(); });
    connect(&quiet_, &QTimer::timeout, this, [this] { OnQuiet(); });
    setFocus();
}

WindowWidget::WindowWidget(WindowId id, WindowWidget& parent, Color background, WindowProcedure procedure)
    : QWidget(&parent),
      id_(id),
      top_level_(false),
      resizable_(true),
      background_(background),
      procedure_(std::move(procedure)) {
    Prepare();
}

void WindowWidget::Prepare() {
    setAttribute(Qt::WA_OpaquePaintEvent);
    setFocusPolicy(Qt::NoFocus);
    QPalette colors = palette();
    colors.setColor(QPalette::Window, ToQColor(background_));
    setPalette(colors);
}

bool WindowWidget::Dispatch(Message& message) {
    if (gone_) return false;
    const ProcedureScope scope;
    return procedure_ && procedure_(id_, message);
}

void WindowWidget::Open() {
    PlatformState& state = State();
    state.windows[id_] = this;
    {
        const std::scoped_lock lock(state.mutex);
        state.live.insert(id_);
    }
    told_size_ = size();
    Dispatch(MessageType::kCreate);
}

void WindowWidget::Destroy() {
    if (destroying_) return;
    destroying_ = true;
    const ProcedureScope scope;
    PlatformState& state = State();
    const auto parts = [&](bool top_level) {
        std::vector<WindowWidget*> found;
        for (const auto& [id, window] : state.windows) {
            if (window->parentWidget() == this && window->IsTopLevel() == top_level) found.push_back(window);
        }
        return found;
    };
    for (WindowWidget* const owned : parts(/*top_level=*/true)) owned->Destroy();
    Dispatch(MessageType::kDestroy);
    for (WindowWidget* const child : parts(/*top_level=*/false)) child->Destroy();

    gone_ = true;
    state.windows.erase(id_);
    {
        const std::scoped_lock lock(state.mutex);
        state.live.erase(id_);
    }
    quiet_.stop();
    wish_look_.stop();
    state_look_.stop();
    for (const auto& [number, timer] : timers) timer->stop();
    CloseMessageBoxes(id_);
    Bury(this);
}

QWidget* WindowWidget::Control(int id) const {
    const auto found = controls_.find(id);
    return found != controls_.end() ? found->second : nullptr;
}

void WindowWidget::AddControl(int id, QWidget* control) {
    if (QWidget* const former = Control(id)) Bury(former);
    controls_[id] = control;
    control->show();
}

void WindowWidget::RemoveControl(int id) {
    QWidget* const control = Control(id);
    if (control == nullptr) return;
    if (control->hasFocus()) TakeFocus();
    controls_.erase(id);
    Bury(control);
}

int WindowWidget::ControlOf(const QWidget* widget) const {
    for (; widget != nullptr && widget != this; widget = widget->parentWidget()) {
        for (const auto& [id, control] : controls_) {
            if (control == widget) return id;
        }
    }
    return 0;
}

void WindowWidget::TakeFocus() { setFocus(Qt::OtherFocusReason); }

// While the frame is not known, that of another window, if possible of the same kind.
QMargins WindowWidget::Frame() const {
    if (Framed()) return windowHandle()->frameMargins();
    const QMargins& seen =
        seen_frames[resizable_].isNull() ? seen_frames[!resizable_] : seen_frames[resizable_];
    return seen.isNull() && OnWayland() ? kUntoldFrame : seen;
}

bool WindowWidget::Framed() const {
    return windowHandle() != nullptr && !IsMissing(windowHandle()->frameMargins());
}

bool WindowWidget::Maximized() const {
    return wanted_full_screen_ || isFullScreen() ? maximized_below_
                                                 : windowState().testFlag(Qt::WindowMaximized);
}

bool WindowWidget::FullScreen() const { return wanted_full_screen_.value_or(isFullScreen()); }

void WindowWidget::SetFullScreen(bool on) { WantFullScreen(on, Maximized()); }

// All at once and before it is there: a window manager passes over what is asked for a window that it does
// not manage yet.
void WindowWidget::ShowFullScreen(bool maximized_below) {
    WantFullScreen(true, maximized_below);
    show();
}

void WindowWidget::WantFullScreen(bool on, bool maximized_below) {
    maximized_below_ = maximized_below;
    wanted_full_screen_ = on;
    state_tries_ = kWishTries;
    AskForState();
}

void WindowWidget::AskForState() {
    setWindowState(windowState()
                       .setFlag(Qt::WindowMaximized, maximized_below_)
                       .setFlag(Qt::WindowFullScreen, *wanted_full_screen_));
    state_look_.start();
}

// A window manager tells of states on the way, and of two requests that come at once it may lose one. What it
// has made of them when it is quiet counts; whether a full screen is maximised too, each has its own mind.
void WindowWidget::LookAtState() {
    const bool is_kept = isFullScreen() == *wanted_full_screen_ &&
                         (isFullScreen() || windowState().testFlag(Qt::WindowMaximized) == maximized_below_);
    if (gone_ || is_kept || OnWayland() || --state_tries_ <= 0) {
        wanted_full_screen_.reset();
    } else {
        AskForState();
    }
}

void WindowWidget::SetClientSize(QSize size) {
    if (resizable_) {
        resize(size);
    } else {
        setFixedSize(size);
    }
    CheckSize();
}

void WindowWidget::SetOuterSize(Size size) {
    // A compositor takes the size at once, or has its own, which stands.
    if (OnWayland()) return SetClientSize(Shrunk(ToQSize(size), Frame()));
    wanted_outer_ = ToQSize(size);
    wish_tries_ = kWishTries;
    SetClientSize(Shrunk(*wanted_outer_, Frame()));
    Settle();
}

void WindowWidget::MoveOuter(QPoint at) {
    if (OnWayland()) return move(at);  // remembered for a desktop that has places
    wanted_place_ = at;
    wish_tries_ = kWishTries;
    move(at);
    Settle();
}

void WindowWidget::SetMinimum(QSize client, QSize outer) {
    minimum_client_ = client;
    minimum_outer_ = outer;
    ApplyMinimum();
    CheckSize();
}

void WindowWidget::ApplyMinimum() {
    if (!minimum_outer_.isValid()) return;
    const Rect work = MonitorOf(id_).work;
    const QSize least = minimum_client_.expandedTo(Shrunk(minimum_outer_, Frame()));
    setMinimumSize(least.boundedTo(Shrunk({work.w, work.h}, Frame())));
}

// The compositor has chosen the screen, perhaps a smaller one than the window was made for.
void WindowWidget::FitScreen() {
    if (gone_ || !OnWayland() || !resizable_ || isMaximized() || isFullScreen()) return;
    ApplyMinimum();
    const Rect work = MonitorOf(id_).work;
    const QSize fitting = size().boundedTo(Shrunk({work.w, work.h}, Frame()));
    if (fitting != size()) SetClientSize(fitting);
}

QRect WindowWidget::WithWishes(QRect outer) const {
    if (wanted_place_) outer.moveTopLeft(*wanted_place_);
    if (wanted_outer_) outer.setSize(wanted_outer_->expandedTo(minimumSize().grownBy(Frame())));
    return outer;
}

QRect WindowWidget::OuterRect() const {
    if (isMaximized() || isFullScreen()) return frameGeometry();
    if (Framed()) return WithWishes(frameGeometry());
    // The frame will stand around the place that was asked for.
    const QMargins frame = Frame();
    return WithWishes({pos(), size().grownBy(frame)});
}

QRect WindowWidget::NormalOuterRect() const {
    const QRect normal = normalGeometry();
    const bool is_normal = !isMaximized() && !isMinimized() && !isFullScreen();
    if (is_normal || !normal.isValid()) return OuterRect();
    // Before it was ever framed it stood where its frame was to stand.
    return WithWishes(normal.marginsAdded(normal_frame_.value_or(QMargins())));
}

void WindowWidget::CheckSize() {
    if (size() == told_size_ || !told_size_.isValid()) return;  // not open yet: the first size is no change
    told_size_ = size();
    Message message{.type = MessageType::kSize, .size = FromQSize(size())};
    Dispatch(message);
}

bool WindowWidget::CanBePlaced() const {
    return !gone_ && Framed() && !isMaximized() && !isMinimized() && !isFullScreen();
}

void WindowWidget::Settle() {
    if (!gone_ && windowHandle() != nullptr && IsInTheMaking(windowHandle()->frameMargins())) {
        QTimer::singleShot(kFrameLookMs, this, [this] { Settle(); });
    }
    if (!CanBePlaced()) return;
    normal_frame_ = seen_frames[resizable_] = windowHandle()->frameMargins();
    ApplyMinimum();
    if (OnWayland()) return;
    // The window manager found the place for a window without a frame, or for a larger one.
    if (isVisible() && !std::exchange(place_seen_, true) && !wanted_place_) {
        const Rect outer = FromQRect(OuterRect());
        const Rect inside = outer.MovedInside(MonitorOf(id_).work);
        if (inside != outer) {
            wanted_place_ = QPoint(inside.x, inside.y);
            wish_tries_ = kWishTries;
        }
    }
    if (!wish_look_.isActive()) AskForWishes();
}

void WindowWidget::AskForWishes() {
    if (wanted_outer_) {
        const QSize client = Shrunk(*wanted_outer_, Frame()).expandedTo(minimumSize());
        if (size() != client) SetClientSize(client);
    }
    if (wanted_place_ && frameGeometry().topLeft() != *wanted_place_) move(*wanted_place_);
    if (wanted_outer_ || wanted_place_) wish_look_.start();
}

// What was asked for is taken for done by the toolkit until the window manager says otherwise. It has had
// time.
void WindowWidget::LookAtWishes() {
    if (!CanBePlaced()) return;
    const QRect stands = frameGeometry();
    const bool is_last = --wish_tries_ <= 0;
    if (is_last || (wanted_outer_ && stands.size() == WithWishes(stands).size())) wanted_outer_.reset();
    if (is_last || (wanted_place_ && stands.topLeft() == *wanted_place_)) wanted_place_.reset();
    AskForWishes();
}

void WindowWidget::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    PainterCanvas canvas(painter, FromQSize(size()));
    Message message{.type = MessageType::kPaint, .size = FromQSize(size()), .canvas = &canvas};
    if (!Dispatch(message)) painter.fillRect(rect(), ToQColor(background_));
}

void WindowWidget::resizeEvent(QResizeEvent* event) {
    if (top_level_ && event->spontaneous()) PlacedByUser();
    CheckSize();
}

void WindowWidget::moveEvent(QMoveEvent* event) {
    if (top_level_ && event->spontaneous()) PlacedByUser();
}

void WindowWidget::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    if (!top_level_ || event->spontaneous()) return;
    QTimer::singleShot(0, this, [this] { Settle(); });
    quiet_.start();  // from the place that it has then on, a move is the user's
}

void WindowWidget::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (!top_level_ || event->type() != QEvent::WindowStateChange) return;
    const Qt::WindowStates before = static_cast<QWindowStateChangeEvent*>(event)->oldState();
    if (wanted_full_screen_) {
        state_look_.start();
    } else if (!before.testFlag(Qt::WindowFullScreen)) {
        maximized_below_ = before.testFlag(Qt::WindowMaximized);
    }
    Settle();
}

void WindowWidget::PlacedByUser() {
    if (!isVisible() || gone_) return;
    Settle();
    quiet_.start();
}

void WindowWidget::OnQuiet() {
    const QRect before = std::exchange(settled_rect_, frameGeometry());
    // The first time it has just been shown.
    if (before.isValid() && before != settled_rect_) Dispatch(MessageType::kMoveEnd);
}

void WindowWidget::closeEvent(QCloseEvent* event) {
    event->ignore();  // what happens is the procedure's to say
    if (!Dispatch(MessageType::kClose)) Destroy();
}

// A touchpad tells of pixels, but an X server's are of no certain size.
void WindowWidget::wheelEvent(QWheelEvent* event) {
    constexpr int kNotchAngle = 120;
    int down = -event->pixelDelta().y();
    if (down == 0 || QGuiApplication::platformName() == QStringLiteral("xcb")) {
        wheel_rest_ -= event->angleDelta().y() * kWheelNotch;
        down = wheel_rest_ / kNotchAngle;
        wheel_rest_ %= kNotchAngle;
    }
    Message message{.type = MessageType::kWheel, .value = down};
    event->setAccepted(Dispatch(message));
}

void WindowWidget::mousePressEvent(QMouseEvent* event) {
    pressed_ = event->button() == Qt::LeftButton && childAt(event->position().toPoint()) == nullptr;
    event->setAccepted(pressed_);
}

void WindowWidget::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || !std::exchange(pressed_, false)) return event->ignore();
    const QPoint at = event->position().toPoint();
    if (!rect().contains(at) || childAt(at) != nullptr) return;
    Message message{.type = MessageType::kClick, .at = {at.x(), at.y()}};
    Dispatch(message);
}

void WindowWidget::keyPressEvent(QKeyEvent* event) {
    if (!top_level_) return QWidget::keyPressEvent(event);  // on to the window around it
    const Key key = KeyOf(*event);
    if (!resizable_ && key == Key::kEscape) {
        if (!Dispatch(MessageType::kClose)) Destroy();
        return;
    }
    Message message{.type = MessageType::kKeyDown, .key = key, .is_repeat = event->isAutoRepeat()};
    Dispatch(message);
}

void WindowWidget::keyReleaseEvent(QKeyEvent* event) {
    if (!top_level_) return QWidget::keyReleaseEvent(event);
    if (event->isAutoRepeat()) return;  // the key is still down
    Message message{.type = MessageType::kKeyUp, .key = KeyOf(*event)};
    Dispatch(message);
}

}  // namespace brickfall
