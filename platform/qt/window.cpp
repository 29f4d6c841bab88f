#include "platform/window.h"

#include <QIcon>
#include <QPixmap>
#include <QProxyStyle>
#include <QScreen>
#include <QSignalBlocker>
#include <QStyleFactory>
#include <algorithm>
#include <cstdint>
#include <utility>

#include "platform/automation.h"
#include "platform/qt/application.h"
#include "platform/qt/controls.h"
#include "platform/qt/convert.h"
#include "platform/qt/picture.h"
#include "platform/qt/wayland.h"
#include "platform/qt/window_widget.h"

namespace brickfall {
namespace {

template <typename Control>
Control* FindControl(WindowId window, int id) {
    const WindowWidget* const found = FindWindow(window);
    return found != nullptr ? dynamic_cast<Control*>(found->Control(id)) : nullptr;
}

class SeekStyle : public QProxyStyle {
  public:
    using QProxyStyle::QProxyStyle;
    int styleHint(StyleHint hint, const QStyleOption* option, const QWidget* widget,
                  QStyleHintReturn* data) const override {
        if (hint == SH_Slider_AbsoluteSetButtons) return Qt::LeftButton;
        return QProxyStyle::styleHint(hint, option, widget, data);
    }
};

QSlider* AddSlider(WindowId window, int id, const Rect& rect, int lowest, int highest, int position) {
    WindowWidget* const around = FindWindow(window);
    if (around == nullptr) return nullptr;
    auto* const control = new TrackBarWidget(around);
    control->setFocusPolicy(Qt::StrongFocus);
    control->setRange(lowest, highest);
    control->setValue(position);
    QObject::connect(control, &QSlider::valueChanged, around, [around, id](int value) {
        Message message{.type = MessageType::kScroll, .id = id, .value = value};
        around->Dispatch(message);
    });
    control->setGeometry(ToQRect(rect));
    around->AddControl(id, control);
    return control;
}

int64_t Overlap(const Rect& a, const Rect& b) {
    const int64_t w = std::min(a.Right(), b.Right()) - std::max(a.x, b.x);
    const int64_t h = std::min(a.Bottom(), b.Bottom()) - std::max(a.y, b.y);
    return w > 0 && h > 0 ? w * h : 0;
}

int64_t Distance(const Rect& a, const Rect& b) {
    const int64_t x = std::max({0, a.x - b.Right(), b.x - a.Right()});
    const int64_t y = std::max({0, a.y - b.Bottom(), b.y - a.Bottom()});
    return x * x + y * y;
}

Monitor MonitorOn(const QScreen& screen) {
    const QRect work =
        OnWayland() ? WithoutUntoldPanels(screen.availableGeometry()) : screen.availableGeometry();
    return {FromQRect(screen.geometry()), FromQRect(work)};
}

std::vector<Monitor>& PretendedMonitors() {
    static auto& monitors = *new std::vector<Monitor>;
    return monitors;
}

// A tooltip of rich text would be a narrow column.
QString TipLines(std::string_view tip) {
    constexpr qsizetype kLongestLine = 56;
    QString lines;
    qsizetype length = 0;
    for (const QString& word : ToQString(tip).split(QLatin1Char(' '))) {
        const bool is_full = length + word.size() > kLongestLine;
        if (!lines.isEmpty()) lines += QLatin1Char(is_full ? '\n' : ' ');
        length = (is_full ? 0 : length) + word.size() + 1;
        lines += word;
    }
    return lines;
}

}  // namespace

// ---- Windows

WindowId OpenWindow(const WindowOptions& options, WindowProcedure procedure) {
    PlatformState& state = State();
    if (state.application == nullptr) return 0;
    if (options.owner == 0) state.quitting = false;  // somebody is there again
    const WindowId id = ++state.last_id;
    auto* const widget = new WindowWidget(id, options, FindWindow(options.owner), std::move(procedure));
    widget->Open();
    return WindowExists(id) ? id : 0;
}

WindowId OpenChild(WindowId parent, const Rect& rect, Color background, WindowProcedure procedure) {
    WindowWidget* const around = FindWindow(parent);
    if (around == nullptr) return 0;
    const WindowId id = ++State().last_id;
    auto* const widget = new WindowWidget(id, *around, background, std::move(procedure));
    widget->setGeometry(ToQRect(rect));
    widget->Open();
    if (!WindowExists(id)) return 0;
    widget->show();
    return id;
}

void DestroyWindow(WindowId window) {
    if (WindowWidget* const widget = FindWindow(window)) widget->Destroy();
}

void ShowWindow(WindowId window, ShowState state, bool full_screen) {
    WindowWidget* const widget = FindWindow(window);
    if (widget == nullptr) return;
    if (full_screen) return widget->ShowFullScreen(state == ShowState::kMaximized);
    switch (state) {
        case ShowState::kNormal:
            widget->showNormal();
            break;
        case ShowState::kMaximized:
            widget->showMaximized();
            break;
        case ShowState::kMinimized:
            widget->showMinimized();
            break;
    }
}

void BringToFront(WindowId window) {
    WindowWidget* const widget = FindWindow(window);
    if (widget == nullptr) return;
    widget->setWindowState(widget->windowState() & ~Qt::WindowMinimized);
    widget->show();
    widget->raise();
    widget->activateWindow();
}

bool IsMaximized(WindowId window) {
    const WindowWidget* const widget = FindWindow(window);
    return widget != nullptr && widget->Maximized();
}

bool IsMinimized(WindowId window) {
    const WindowWidget* const widget = FindWindow(window);
    return widget != nullptr && (widget->windowState() & Qt::WindowMinimized) != 0;
}

void SetFullScreen(WindowId window, bool on) {
    if (WindowWidget* const widget = FindWindow(window)) widget->SetFullScreen(on);
}

bool IsFullScreen(WindowId window) {
    const WindowWidget* const widget = FindWindow(window);
    return widget != nullptr && widget->FullScreen();
}

Rect WindowRect(WindowId window) {
    const WindowWidget* const widget = FindWindow(window);
    return widget != nullptr ? FromQRect(widget->OuterRect()) : Rect{};
}

Rect NormalRect(WindowId window) {
    const WindowWidget* const widget = FindWindow(window);
    return widget != nullptr ? FromQRect(widget->NormalOuterRect()) : Rect{};
}

Size FrameSize(WindowId window) {
    const WindowWidget* const widget = FindWindow(window);
    if (widget == nullptr || !widget->IsTopLevel()) return {};
    const QMargins frame = widget->Frame();
    return {frame.left() + frame.right(), frame.top() + frame.bottom()};
}

Size ClientSize(WindowId window) {
    const WindowWidget* const widget = FindWindow(window);
    return widget != nullptr ? FromQSize(widget->size()) : Size{};
}

void MoveWindow(WindowId window, Point at) {
    if (WindowWidget* const widget = FindWindow(window)) widget->MoveOuter({at.x, at.y});
}

void ResizeWindow(WindowId window, Size size) {
    if (WindowWidget* const widget = FindWindow(window)) widget->SetOuterSize(size);
}

void MoveChild(WindowId child, const Rect& rect) {
    WindowWidget* const widget = FindWindow(child);
    if (widget == nullptr || widget->IsTopLevel()) return;
    widget->setGeometry(ToQRect(rect));
    widget->CheckSize();
}

void SetMinimumSize(WindowId window, Size client, Size outer) {
    WindowWidget* const widget = FindWindow(window);
    if (widget != nullptr && widget->Resizable()) widget->SetMinimum(ToQSize(client), ToQSize(outer));
}

// Window managers take no colours for their frames. A frame that the toolkit draws itself, and the boxes
// inside it, follow the palette.
void SetTitleBarColors(WindowId window, Color caption, Color, Color text) {
    if (FindWindow(window) == nullptr) return;
    QPalette palette = QApplication::palette();
    palette.setColor(QPalette::Window, ToQColor(caption));
    palette.setColor(QPalette::WindowText, ToQColor(text));
    palette.setColor(QPalette::Disabled, QPalette::WindowText,
                     QApplication::palette().color(QPalette::Disabled, QPalette::Text));
    if (palette != QApplication::palette()) QApplication::setPalette(palette);
}

void SetWindowIcons(WindowId window, std::span<const Image> sizes) {
    WindowWidget* const widget = FindWindow(window);
    if (widget == nullptr) return;
    QIcon icon;
    for (const Image& image : sizes) {
        if (IsWhole(image)) icon.addPixmap(QPixmap::fromImage(OnPixelsOf(image).copy()));
    }
    widget->setWindowIcon(icon);
}

void SetAccessibleWindowName(WindowId window, std::string_view name, std::string_view description) {
    WindowWidget* const widget = FindWindow(window);
    if (widget == nullptr) return;
    widget->setAccessibleName(ToQString(name));
    widget->setAccessibleDescription(ToQString(description));
}

void InvalidateWindow(WindowId window) {
    if (WindowWidget* const widget = FindWindow(window)) widget->update();
}

void StartTimer(WindowId window, int timer, int milliseconds) {
    WindowWidget* const widget = FindWindow(window);
    if (widget == nullptr) return;
    QTimer*& running = widget->timers[timer];
    if (running == nullptr) {
        running = new QTimer(widget);
        running->setTimerType(Qt::PreciseTimer);
        QObject::connect(running, &QTimer::timeout, widget, [widget, timer] {
            Message message{.type = MessageType::kTimer, .id = timer};
            widget->Dispatch(message);
        });
    }
    running->start(std::max(1, milliseconds));
}

void StopTimer(WindowId window, int timer) {
    WindowWidget* const widget = FindWindow(window);
    if (widget == nullptr) return;
    const auto found = widget->timers.find(timer);
    if (found != widget->timers.end()) found->second->stop();
}

bool HasFocus(WindowId window) {
    const WindowWidget* const widget = FindWindow(window);
    return widget != nullptr && ApplicationActive() && QApplication::activeModalWidget() == nullptr &&
           QApplication::focusWidget() == widget;
}

void FocusWindow(WindowId window) {
    WindowWidget* const widget = FindWindow(window);
    if (widget == nullptr || QApplication::activeModalWidget() != nullptr) return;
    widget->TakeFocus();
    if (ApplicationActive() && !widget->isActiveWindow() && widget->isVisible()) widget->activateWindow();
}

// ---- Monitors

std::vector<Monitor> Monitors() {
    if (!PretendedMonitors().empty()) return PretendedMonitors();
    std::vector<Monitor> monitors;
    for (const QScreen* const screen : QGuiApplication::screens()) monitors.push_back(MonitorOn(*screen));
    return monitors;
}

Monitor MonitorOf(WindowId window) {
    const WindowWidget* const widget = FindWindow(window);
    // Where there are no places, the window still knows which screen it is on.
    if (OnWayland() && widget != nullptr) return MonitorOn(*widget->screen());
    const Rect rect = WindowRect(window);
    Monitor nearest;
    bool first = true;
    for (const Monitor& monitor : Monitors()) {
        const bool nearer =
            Overlap(rect, monitor.area) > Overlap(rect, nearest.area) ||
            (Overlap(rect, nearest.area) == 0 && Distance(rect, monitor.area) < Distance(rect, nearest.area));
        if (first || nearer) nearest = monitor;
        first = false;
    }
    return nearest;
}

void PretendMonitors(std::vector<Monitor> monitors) { PretendedMonitors() = std::move(monitors); }

// ---- Controls

void CreateText(WindowId window, int id, const Rect& rect, std::string_view text, const Font& font,
                bool clickable) {
    WindowWidget* const around = FindWindow(window);
    if (around == nullptr) return;
    auto* const control = new TextWidget(*around, id, text, font, clickable);
    control->setGeometry(ToQRect(rect));
    around->AddControl(id, control);
}

void CreateButton(WindowId window, int id, const Rect& rect, std::string_view text, const Font& font) {
    WindowWidget* const around = FindWindow(window);
    if (around == nullptr) return;
    auto* const control = new ButtonWidget(*around, id, text, font);
    control->setGeometry(ToQRect(rect));
    around->AddControl(id, control);
}

void CreateEdit(WindowId window, int id, const Rect& rect, const Font& font, int limit, Color text,
                Color background) {
    WindowWidget* const around = FindWindow(window);
    if (around == nullptr) return;
    auto* const control = new EditWidget(*around, font, limit, text, background);
    control->setGeometry(ToQRect(rect));
    around->AddControl(id, control);
}

void CreateField(WindowId window, int id, const Rect& rect, const Font& font, int limit, Color text,
                 Color background) {
    WindowWidget* const around = FindWindow(window);
    if (around == nullptr) return;
    auto* const control = new FieldWidget(*around, font, limit, text, background);
    control->setGeometry(ToQRect(rect));
    around->AddControl(id, control);
}

void SetCaretBlinking(bool on) {
    static const int usual = QApplication::cursorFlashTime();
    QApplication::setCursorFlashTime(on ? usual : 0);
}

void CreateTrackBar(WindowId window, int id, const Rect& rect, int lowest, int highest, int position) {
    AddSlider(window, id, rect, lowest, highest, position);
}

void CreateSeekBar(WindowId window, int id, const Rect& rect, int highest) {
    QSlider* const control = AddSlider(window, id, rect, 0, highest, 0);
    if (control == nullptr) return;
    auto* const style = new SeekStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    style->setParent(control);
    control->setStyle(style);
    control->setFocusPolicy(Qt::TabFocus);
    control->setPageStep(std::max(1, highest / 20));
}

void SetTrackBar(WindowId window, int id, int position) {
    auto* const control = FindControl<QSlider>(window, id);
    if (control == nullptr || control->value() == position) return;
    const QSignalBlocker quiet(control);
    control->setValue(position);
}

void RemoveControl(WindowId window, int id) {
    if (WindowWidget* const widget = FindWindow(window)) widget->RemoveControl(id);
}

void MoveControl(WindowId window, int id, const Rect& rect) {
    if (auto* const control = FindControl<QWidget>(window, id)) control->setGeometry(ToQRect(rect));
}

void SetControlText(WindowId window, int id, std::string_view text) {
    if (auto* const control = FindControl<ClickWidget>(window, id)) control->SetText(text);
    if (auto* const edit = FindControl<EditWidget>(window, id)) edit->SetText(ToQString(text));
    if (auto* const field = FindControl<FieldWidget>(window, id)) field->setText(ToQString(text));
}

std::string ControlText(WindowId window, int id) {
    if (const auto* const control = FindControl<ClickWidget>(window, id)) return control->Text();
    if (const auto* const field = FindControl<FieldWidget>(window, id)) return field->text().toStdString();
    if (const auto* const edit = FindControl<EditWidget>(window, id)) {
        return edit->toPlainText().toStdString();
    }
    return {};
}

void EnableWindowControl(WindowId window, int id, bool on) {
    auto* const control = FindControl<QWidget>(window, id);
    if (control == nullptr || control->isEnabled() == on) return;
    WindowWidget* const around = FindWindow(window);
    // Left alone, the focus would wander to the next control, and a key with it.
    if (!on && around->ControlOf(around->window()->focusWidget()) == id) around->TakeFocus();
    control->setEnabled(on);
}

void SetTextClickable(WindowId window, int id, bool on) {
    if (auto* const control = FindControl<TextWidget>(window, id)) control->SetClickable(on);
}

void SetTextSpoken(WindowId window, int id) {
    if (auto* const control = FindControl<TextWidget>(window, id)) control->SetSpoken();
}

void ScaleControls(WindowId window, double factor) {
    const WindowWidget* const widget = FindWindow(window);
    if (widget == nullptr) return;
    for (const auto& [id, control] : widget->Controls()) {
        const QRectF rect(control->geometry());
        control->setGeometry(QRectF(rect.topLeft() * factor, rect.size() * factor).toRect());
    }
}

void FocusControl(WindowId window, int id) {
    if (auto* const control = FindControl<QWidget>(window, id)) control->setFocus(Qt::OtherFocusReason);
}

void InvalidateControl(WindowId window, int id) {
    if (auto* const control = FindControl<QWidget>(window, id)) control->update();
}

void SetAccessibleControlName(WindowId window, int id, std::string_view name) {
    if (auto* const control = FindControl<QWidget>(window, id)) control->setAccessibleName(ToQString(name));
}

void SetControlTip(WindowId window, int id, std::string_view tip) {
    auto* const control = FindControl<QWidget>(window, id);
    if (control == nullptr) return;
    control->setToolTip(TipLines(tip));
    control->setAccessibleDescription(ToQString(tip));
}

void SetAccessibleControlDescription(WindowId window, int id, std::string_view description) {
    if (auto* const control = FindControl<QWidget>(window, id)) {
        control->setAccessibleDescription(ToQString(description));
    }
}

}  // namespace brickfall
