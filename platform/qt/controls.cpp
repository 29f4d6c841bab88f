#include "platform/qt/controls.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QInputMethodEvent>
#include <QKeyEvent>
#include <QMimeData>
#include <QMouseEvent>
#include <QPainter>
#include <QStyle>
#include <QStyleOptionSlider>
#include <QTextBlock>
#include <QTextDocument>
#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/qt/application.h"
#include "platform/qt/convert.h"
#include "platform/qt/font.h"
#include "platform/qt/painter_canvas.h"
#include "platform/qt/window_widget.h"

namespace brickfall {
namespace {

constexpr qsizetype kMaxSpokenUnits = 4'096;  // of a name that a screen reader gets

constexpr int kEdgeWidth = 2;    // of the sunken edge of an edit
constexpr int kEdgeLight = 170;  // percent of a button's colour, on its lit sides

QPalette TypingColors(const QWidget& widget, Color text, Color background) {
    QPalette colors = widget.palette();
    colors.setColor(QPalette::Base, ToQColor(background));
    colors.setColor(QPalette::Text, ToQColor(text));
    return colors;
}

// Plain text, which a tooltip would show in one line.
QString WrappedTip(std::string_view text) {
    const QString plain = CutUnits(ToQString(text.substr(0, kMaxSpokenUnits * 4)), kMaxSpokenUnits);
    return QStringLiteral("<p>%1</p>").arg(plain.toHtmlEscaped());
}

// Where text is typed; in the accent colour where the keyboard is.
void DrawSunkenEdge(QWidget& widget) {
    QPainter painter(&widget);
    PainterCanvas canvas(painter, FromQSize(widget.size()));
    const QPalette& colors = widget.palette();
    const QColor shade = widget.hasFocus() ? colors.color(QPalette::Highlight) : QColor(Qt::black);
    const QColor light = widget.hasFocus() ? shade : colors.color(QPalette::Button).lighter(kEdgeLight);
    const Rect all = {0, 0, widget.width(), widget.height()};
    for (int i = 0; i < kEdgeWidth; ++i) Bevel(canvas, all.Grown(-i), FromQColor(shade), FromQColor(light));
}

bool IsPressKey(const QKeyEvent& event) {
    return event.key() == Qt::Key_Return || event.key() == Qt::Key_Enter || event.key() == Qt::Key_Space;
}

}  // namespace

// ---- Buttons and texts

ClickWidget::ClickWidget(WindowWidget& window, int id, std::string_view text, Font font, bool clickable)
    : QWidget(&window), window_(window), id_(id), text_(text), font_(std::move(font)), clickable_(clickable) {
    setAttribute(Qt::WA_OpaquePaintEvent);
    setFocusPolicy(clickable ? Qt::TabFocus : Qt::NoFocus);
}

void ClickWidget::SetText(std::string_view text) {
    if (text == text_) return;
    text_ = text;
    update();
    QAccessibleEvent changed(this, QAccessible::NameChanged);
    QAccessible::updateAccessibility(&changed);
    if (!spoken_ || text.empty()) return;
    if (auto& spoken = brickfall::State().spoken) spoken->push_back(text_);
    QAccessibleEvent appeared(this, QAccessible::ObjectShow);  // of a notification is spoken
    QAccessible::updateAccessibility(&appeared);
}

void ClickWidget::SetClickable(bool clickable) {
    if (clickable == clickable_) return;
    if (!clickable && hasFocus()) window_.TakeFocus();
    clickable_ = clickable;
    setFocusPolicy(clickable ? Qt::TabFocus : Qt::NoFocus);
    SetState(inside_, false, false);
}

void ClickWidget::Click() {
    if (clickable_ && isEnabled()) PostCommand(window_.Id(), id_);
}

ButtonState ClickWidget::State() const {
    ButtonState state;
    state.disabled = !isEnabled();
    state.pressed = !state.disabled && (key_held_ || (held_ && inside_));
    state.hot = inside_ || held_ || key_held_;
    state.focused = hasFocus();
    return state;
}

void ClickWidget::SetState(bool inside, bool held, bool key_held) {
    if (inside == inside_ && held == held_ && key_held == key_held_) return;
    inside_ = inside;
    held_ = held;
    key_held_ = key_held;
    update();
}

bool ClickWidget::event(QEvent* event) {
    switch (event->type()) {
        case QEvent::Enter:
            SetState(isEnabled(), held_, key_held_);
            break;
        case QEvent::Leave:
            SetState(false, held_, key_held_);
            break;
        case QEvent::Hide:
        case QEvent::EnabledChange:
            // One that is disabled under the pointer stays hot until the pointer leaves it.
            SetState(isVisible() && (inside_ || (isEnabled() && underMouse())), false, false);
            update();
            break;
        case QEvent::FocusOut:
            SetState(inside_, held_, false);
            update();
            break;
        case QEvent::FocusIn:
            update();
            break;
        default:
            break;
    }
    return QWidget::event(event);
}

void ClickWidget::mousePressEvent(QMouseEvent* event) {
    if (!clickable_ || event->button() != Qt::LeftButton) return event->ignore();
    SetState(true, true, key_held_);
}

void ClickWidget::mouseMoveEvent(QMouseEvent* event) {
    if (held_) SetState(rect().contains(event->position().toPoint()), true, key_held_);
}

void ClickWidget::mouseReleaseEvent(QMouseEvent* event) {
    if (!held_ || event->button() != Qt::LeftButton) return event->ignore();
    const bool inside = rect().contains(event->position().toPoint());
    SetState(inside, false, key_held_);
    if (inside) Click();
}

void ClickWidget::keyPressEvent(QKeyEvent* event) {
    // Every other key, the arrows too, is the window's.
    if (!clickable_ || !IsPressKey(*event)) return QWidget::keyPressEvent(event);
    if (event->isAutoRepeat()) return;
    if (event->key() == Qt::Key_Space) {
        SetState(inside_, held_, true);
    } else {
        Click();
    }
}

void ClickWidget::keyReleaseEvent(QKeyEvent* event) {
    if (!clickable_ || !IsPressKey(*event)) return QWidget::keyReleaseEvent(event);
    if (event->isAutoRepeat() || event->key() != Qt::Key_Space) return;
    if (std::exchange(key_held_, false)) {
        update();
        Click();
    }
}

ButtonWidget::ButtonWidget(WindowWidget& window, int id, std::string_view text, Font font)
    : ClickWidget(window, id, text, std::move(font), /*clickable=*/true) {
    setCursor(Qt::PointingHandCursor);
}

void ButtonWidget::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    PainterCanvas canvas(painter, FromQSize(size()));
    Message message{.type = MessageType::kPaintButton,
                    .id = Id(),
                    .size = FromQSize(size()),
                    .canvas = &canvas,
                    .button = State()};
    if (Window().Dispatch(message)) return;
    canvas.Fill({0, 0, width(), height()}, Window().Background());
    canvas.FrameRoundRect({0, 0, width(), height()}, 4, Rgb(0x808080), 1);
    canvas.Text({0, 0, width(), height()}, Text(), TextFont(), Rgb(0xFFFFFF), AlignX::kCentre,
                AlignY::kCentre, /*ellipsis=*/true);
}

TextWidget::TextWidget(WindowWidget& window, int id, std::string_view text, Font font, bool clickable)
    : ClickWidget(window, id, text, std::move(font), clickable) {}

void TextWidget::SetText(std::string_view text) {
    if (text != Text()) layout_.reset();
    ClickWidget::SetText(text);
}

void TextWidget::resizeEvent(QResizeEvent*) { layout_.reset(); }

// Whole lines from the top, as many as there is room for, and at least one.
void TextWidget::LayOut() {
    const int line_height = std::max(1, TextFont()->height);
    const int line_count = std::max(1, height() / line_height);
    // No more is shaped than can show.
    const auto units = static_cast<std::size_t>(64 + std::max(0, width()) * line_count);
    const std::string_view shown = std::string_view(Text()).substr(0, units * 4);
    QString text = CutUnits(ToQString(shown), static_cast<qsizetype>(units));
    text.remove(QLatin1Char('\r'));
    for (QChar& c : text) {
        if (c == QLatin1Char('\n')) {
            c = QChar::LineSeparator;
        } else if (c != QChar::LineSeparator) {
            c = OneLine(c).front();
        }
    }
    layout_ = std::make_unique<QTextLayout>(text, TextFont()->font);
    layout_->setCacheEnabled(true);
    QTextOption option;
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    layout_->setTextOption(option);
    layout_->beginLayout();
    qsizetype shown_units = 0;
    for (int row = 0; row < line_count; ++row) {
        QTextLine line = layout_->createLine();
        if (!line.isValid()) break;
        line.setLineWidth(width());
        line.setPosition({0, row * line_height + TextFont()->ascent - line.ascent()});
        shown_units = line.textStart() + line.textLength();
    }
    layout_->endLayout();
    const bool is_cut = shown_units < text.size() || shown.size() < Text().size();
    setToolTip(is_cut ? WrappedTip(Text()) : QString());
}

void TextWidget::paintEvent(QPaintEvent*) {
    Message message{.type = MessageType::kTextStyle, .id = Id()};
    message.style = {Rgb(0xFFFFFF), Window().Background(), false};
    Window().Dispatch(message);
    const Qt::CursorShape shape = message.style.hand ? Qt::PointingHandCursor : Qt::ArrowCursor;
    if (cursor().shape() != shape) setCursor(shape);

    QPainter painter(this);
    painter.fillRect(rect(), ToQColor(message.style.background));
    if (TextFont() == nullptr) return;
    if (layout_ == nullptr) LayOut();
    painter.setPen(ToQColor(message.style.text));
    layout_->draw(&painter, {0, 0});
    if (hasFocus()) {  // where the keyboard is
        PainterCanvas canvas(painter, FromQSize(size()));
        Bevel(canvas, {0, 0, width(), height()}, message.style.text, message.style.text);
    }
}

// ---- Edit

EditWidget::EditWidget(WindowWidget& window, const Font& font, int limit, Color text, Color background)
    : QPlainTextEdit(&window), limit_(std::max(0, limit)) {
    if (font != nullptr) setFont(font->font);
    setTabChangesFocus(true);
    setAcceptDrops(false);  // a text dragged within a full one would be lost
    setFrameStyle(QFrame::Panel |
                  QFrame::Sunken);  // drawn over below: the style's cannot be seen on the dark
    setLineWidth(kEdgeWidth);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setPalette(TypingColors(*this, text, background));
    connect(this, &QPlainTextEdit::textChanged, this, [this] { CutToLimit(); });
}

bool EditWidget::event(QEvent* event) {
    const QEvent::Type type = event->type();
    if (type == QEvent::FocusIn || type == QEvent::FocusOut) update();
    const bool handled = QPlainTextEdit::event(event);
    if (type != QEvent::Paint) return handled;
    DrawSunkenEdge(*this);
    return handled;
}

void EditWidget::SetText(const QString& text) { setPlainText(CutUnits(text, limit_)); }

qsizetype EditWidget::Room() const {
    const QTextCursor cursor = textCursor();
    const qsizetype length = document()->characterCount() - 1;  // the last block's end counts as one
    return std::max<qsizetype>(0, limit_ - length + (cursor.selectionEnd() - cursor.selectionStart()));
}

void EditWidget::keyPressEvent(QKeyEvent* event) {
    const bool is_line = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    const bool is_text = !event->text().isEmpty() && event->text().front().isPrint();
    const bool is_surrogate = !event->text().isEmpty() && event->text().front().isSurrogate();
    const qsizetype units = is_line ? 1 : event->text().size();
    if ((is_line || is_text || is_surrogate) && units > Room() &&
        (event->modifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier)) == 0) {
        return;
    }
    QPlainTextEdit::keyPressEvent(event);
}

void EditWidget::inputMethodEvent(QInputMethodEvent* event) {
    const qsizetype room = Room() + event->replacementLength();
    if (event->commitString().size() <= room) return QPlainTextEdit::inputMethodEvent(event);
    QInputMethodEvent cut(event->preeditString(), event->attributes());
    cut.setCommitString(CutUnits(event->commitString(), room), event->replacementStart(),
                        event->replacementLength());
    QPlainTextEdit::inputMethodEvent(&cut);
    event->accept();
}

void EditWidget::insertFromMimeData(const QMimeData* source) {
    if (source == nullptr || !source->hasText()) return;
    const qsizetype room = Room();
    // Line ends of two characters become one, so twice the room is always enough to look at.
    QString text = CutUnits(source->text(), 2 * room + 1);
    text.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    textCursor().insertText(CutUnits(text, room));
    ensureCursorVisible();
}

// For what comes in by other ways, a screen reader for instance.
void EditWidget::CutToLimit() {
    const int length = document()->characterCount() - 1;
    if (cutting_ || length <= limit_) return;
    cutting_ = true;
    QTextCursor tail(document());
    tail.setPosition(limit_);
    if (limit_ > 0 && document()->characterAt(limit_ - 1).isHighSurrogate()) tail.setPosition(limit_ - 1);
    tail.movePosition(QTextCursor::End, QTextCursor::KeepAnchor);
    tail.removeSelectedText();
    cutting_ = false;
}

// ---- Field

FieldWidget::FieldWidget(WindowWidget& window, const Font& font, int limit, Color text, Color background)
    : QLineEdit(&window) {
    if (font != nullptr) setFont(font->font);
    setFrame(false);
    setTextMargins(kEdgeWidth + 2, 0, kEdgeWidth + 2, 0);
    setMaxLength(std::max(0, limit));
    setPalette(TypingColors(*this, text, background));
    // What is pasted may have several.
    connect(this, &QLineEdit::textChanged, this, [this](QString typed) {
        const auto is_control = [](QChar c) { return c.category() == QChar::Other_Control; };
        if (std::ranges::none_of(typed, is_control)) return;
        std::ranges::replace_if(typed, is_control, QLatin1Char(' '));
        setText(typed);
    });
}

void FieldWidget::paintEvent(QPaintEvent* event) {
    QLineEdit::paintEvent(event);
    DrawSunkenEdge(*this);
}

// ---- Track bar

// The style's handle is hardly to be seen on the dark: over it one in the accent colour.
void TrackBarWidget::paintEvent(QPaintEvent* event) {
    QSlider::paintEvent(event);
    QStyleOptionSlider option;
    initStyleOption(&option);
    const QRect handle = style()
                             ->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, this)
                             .adjusted(1, 1, -1, -1);
    QPainter painter(this);
    painter.fillRect(handle, palette().color(QPalette::Highlight));
    if (!hasFocus()) return;
    PainterCanvas canvas(painter, FromQSize(size()));
    const Color frame = FromQColor(palette().color(QPalette::WindowText));
    Bevel(canvas, FromQRect(handle), frame, frame);
}

// ---- Screen readers

namespace {

class ClickAccess : public QAccessibleWidget {
  public:
    explicit ClickAccess(ClickWidget* control) : QAccessibleWidget(control) {}

    QAccessible::Role role() const override {
        if (Control().IsButton()) return QAccessible::Button;
        if (Control().Spoken()) return QAccessible::Notification;
        return Control().Clickable() ? QAccessible::Link : QAccessible::StaticText;
    }

    QString text(QAccessible::Text kind) const override {
        if (kind == QAccessible::Name && widget()->accessibleName().isEmpty()) {
            return CutUnits(ToQString(Control().Text().substr(0, kMaxSpokenUnits * 4)), kMaxSpokenUnits);
        }
        return QAccessibleWidget::text(kind);
    }

    QStringList actionNames() const override {
        QStringList names = QAccessibleWidget::actionNames();
        if (Control().Clickable() && widget()->isEnabled()) names.prepend(pressAction());
        return names;
    }

    void doAction(const QString& name) override {
        if (name == pressAction()) {
            Control().Click();
        } else {
            QAccessibleWidget::doAction(name);
        }
    }

  private:
    ClickWidget& Control() const { return *static_cast<ClickWidget*>(widget()); }
};

QAccessibleInterface* MakeAccess(const QString&, QObject* object) {
    if (auto* const control = dynamic_cast<ClickWidget*>(object)) return new ClickAccess(control);
    if (auto* const window = dynamic_cast<WindowWidget*>(object)) {
        const QAccessible::Role role = !window->IsTopLevel()               ? QAccessible::Canvas
                                       : window->parentWidget() == nullptr ? QAccessible::Window
                                                                           : QAccessible::Dialog;
        return new QAccessibleWidget(window, role);
    }
    return nullptr;
}

}  // namespace

void InstallAccessibility() { QAccessible::installFactory(MakeAccess); }
void RemoveAccessibility() { QAccessible::removeFactory(MakeAccess); }

}  // namespace brickfall
