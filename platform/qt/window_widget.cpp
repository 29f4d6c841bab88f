#include "platform/qt/window_widget.h"

#include <QCloseEvent>
#include <QKeyEvent>
#include <QPainter>
#include <QWindow>
#include <algorithm>
#include <utility>
#include <vector>

#include "platform/qt/application.h"
#include "platform/qt/convert.h"
#include "platform/qt/key_tracker.h"
#include "platform/qt/message_boxes.h"
#include "platform/qt/painter_canvas.h"

namespace brickfall {
namespace {

constexpr int kQuietMs = 300;  // no move for so long: the user has let go
// Looks for the frame after the window was shown: nothing tells when the window manager has made it.
constexpr int kFrameLookMs[] = {0, 50, 150, 400};

// Frames seen on earlier windows of the same kind: fixed in size, and resizable.
QMargins seen_frames[2];

constexpr Qt::WindowFlags kFixedFlags = Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                                        Qt::WindowSystemMenuHint | Qt::WindowCloseButtonHint;

QSize Shrunk(QSize size, const QMargins& frame) {
    return {std::max(1, size.width() - frame.left() - frame.right()),
            std::max(1, size.height() - frame.top() - frame.bottom())};
}

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
    if (options.size_is_client) {
        SetClientSize({options.size.w, options.size.h});
    } else {
        SetOuterSize(options.size);
    }
    quiet_.setSingleShot(true);
    quiet_.setInterval(kQuietMs);
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
    for (const auto& [number, timer] : timers) timer->stop();
    CloseMessageBoxes(this);
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

int WindowWidget::ControlOf(const QWidget* widget) const {
    for (; widget != nullptr && widget != this; widget = widget->parentWidget()) {
        for (const auto& [id, control] : controls_) {
            if (control == widget) return id;
        }
    }
    return 0;
}

void WindowWidget::TakeFocus() { setFocus(Qt::OtherFocusReason); }

QMargins WindowWidget::Frame() const {
    const QWindow* const handle = windowHandle();
    const QMargins frame = handle != nullptr ? handle->frameMargins() : QMargins();
    return frame.isNull() ? seen_frames[resizable_] : frame;
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
    const QSize outer(size.w, size.h);
    if (windowHandle() != nullptr && windowHandle()->frameMargins().isNull()) wanted_outer_ = outer;
    SetClientSize(Shrunk(outer, Frame()));
}

void WindowWidget::MoveOuter(QPoint at) {
    move(at);
    const QWindow* const handle = windowHandle();
    if (handle != nullptr && handle->frameMargins().isNull()) wanted_place_ = at;
}

void WindowWidget::CheckSize() {
    if (size() == told_size_ || !told_size_.isValid()) return;  // not open yet: the first size is no change
    told_size_ = size();
    Message message{.type = MessageType::kSize, .size = FromQSize(size())};
    Dispatch(message);
}

void WindowWidget::FitToFrame() {
    const QWindow* const handle = windowHandle();
    if (gone_ || handle == nullptr) return;
    const QMargins frame = handle->frameMargins();
    if (frame.isNull() || isMaximized() || isMinimized() || isFullScreen()) return;
    seen_frames[resizable_] = frame;
    if (wanted_place_) move(*std::exchange(wanted_place_, std::nullopt));
    if (!wanted_outer_) return;
    const QSize client = Shrunk(*std::exchange(wanted_outer_, std::nullopt), frame);
    if (client != size()) SetClientSize(client);
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
    for (const int delay : kFrameLookMs) QTimer::singleShot(delay, this, [this] { FitToFrame(); });
}

void WindowWidget::PlacedByUser() {
    if (!isVisible() || gone_) return;
    FitToFrame();
    quiet_.start();
}

void WindowWidget::OnQuiet() {
    const QRect before = std::exchange(settled_rect_, frameGeometry());
    // The first time it is the desktop that has found a place for it.
    if (before.isValid() && before != settled_rect_) Dispatch(MessageType::kMoveEnd);
}

void WindowWidget::closeEvent(QCloseEvent* event) {
    event->ignore();  // what happens is the procedure's to say
    if (!Dispatch(MessageType::kClose)) Destroy();
}

void WindowWidget::keyPressEvent(QKeyEvent* event) {
    if (!top_level_) return QWidget::keyPressEvent(event);  // on to the window around it
    const Key key = KeyOf(event->key());
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
    Message message{.type = MessageType::kKeyUp, .key = KeyOf(event->key())};
    Dispatch(message);
}

}  // namespace brickfall
