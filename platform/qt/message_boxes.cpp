#include <QEvent>
#include <QMessageBox>
#include <QPainter>
#include <QPixmap>
#include <QPointer>
#include <QPushButton>
#include <QToolTip>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/automation.h"
#include "platform/qt/application.h"
#include "platform/qt/convert.h"
#include "platform/qt/font.h"
#include "platform/qt/painter_canvas.h"
#include "platform/qt/window_widget.h"
#include "platform/window.h"

namespace brickfall {
namespace {

constexpr qsizetype kMaxBoxUnits = 4'000;  // of its text, so that it fits the screen

using Answer = std::function<bool(std::string_view title, std::string_view text)>;
Answer& BoxAnswer() {
    static Answer& answer = *new Answer;
    return answer;
}

BoxLook& Look() {
    static BoxLook& look = *new BoxLook;
    return look;
}

// The box's buttons stay the toolkit's, with all that keys and pointer do to them; only their face is ours.
class ButtonFace : public QObject {
  public:
    explicit ButtonFace(QPushButton& button) : QObject(&button) { button.installEventFilter(this); }

    bool eventFilter(QObject* object, QEvent* event) override {
        if (event->type() != QEvent::Paint) return false;
        auto& button = *static_cast<QPushButton*>(object);
        ButtonState state;
        state.disabled = !button.isEnabled();
        state.pressed = button.isDown();
        state.hot = button.underMouse() || button.isDown();
        state.focused = button.hasFocus();
        QString caption = button.text();
        caption.remove(QLatin1Char('&'));  // before the letter that presses it
        QPainter painter(&button);
        PainterCanvas canvas(painter, FromQSize(button.size()));
        Look().paint_button(canvas, caption.toStdString(), state);
        return true;
    }
};

QPixmap DrawIcon(BoxIcon icon, Size size, qreal density) {
    QPixmap picture(ToQSize(size) * density);
    picture.setDevicePixelRatio(density);
    picture.fill(Qt::transparent);
    QPainter painter(&picture);
    PainterCanvas canvas(painter, size);
    Look().paint_icon(canvas, icon);
    return picture;
}

void Dress(QMessageBox& box, BoxIcon icon) {
    const BoxLook& look = Look();
    if (look.font == nullptr) return;
    box.setFont(look.font->font);
    QPalette colors = box.palette();
    colors.setColor(QPalette::Window, ToQColor(look.background));
    colors.setColor(QPalette::WindowText, ToQColor(look.text));
    box.setPalette(colors);
    for (QAbstractButton* const each : box.buttons()) {
        auto* const button = qobject_cast<QPushButton*>(each);
        if (button == nullptr || !look.paint_button) continue;
        button->setIcon({});
        button->setAttribute(Qt::WA_Hover);
        button->setCursor(Qt::PointingHandCursor);
        button->setFixedSize(button->sizeHint().expandedTo(ToQSize(look.button)).width(), look.button.h);
        new ButtonFace(*button);  // the button owns it
    }
    if (icon != BoxIcon::kNone && look.paint_icon) {
        box.setIconPixmap(DrawIcon(icon, look.icon, box.devicePixelRatioF()));
    }
}

QMessageBox::StandardButtons ButtonsOf(BoxButtons buttons) {
    switch (buttons) {
        case BoxButtons::kOk:
            return QMessageBox::Ok;
        case BoxButtons::kOkCancel:
            return QMessageBox::Ok | QMessageBox::Cancel;
        case BoxButtons::kYesNo:
            return QMessageBox::Yes | QMessageBox::No;
    }
    return QMessageBox::Ok;
}

QMessageBox::Icon IconOf(BoxIcon icon) {
    switch (icon) {
        case BoxIcon::kNone:
            return QMessageBox::NoIcon;
        case BoxIcon::kInformation:
            return QMessageBox::Information;
        case BoxIcon::kQuestion:
            return QMessageBox::Question;
        case BoxIcon::kWarning:
            return QMessageBox::Warning;
    }
    return QMessageBox::NoIcon;
}

}  // namespace

void AnswerMessageBoxes(Answer answer) { BoxAnswer() = std::move(answer); }

void SetMessageBoxLook(BoxLook look) {
    Look() = std::move(look);
    if (Look().font != nullptr) QToolTip::setFont(Look().font->font);
}

bool ShowMessageBox(WindowId owner, std::string_view title, std::string_view text, BoxButtons buttons,
                    BoxIcon icon) {
    if (const Answer answer = BoxAnswer()) return answer(title, text);
    if (State().quitting) return false;  // nobody is there to answer any more
    const ProcedureScope scope;          // the owner may go meanwhile, its widget not
    WindowWidget* const window = FindWindow(owner);
    const QPointer<QMessageBox> box = new QMessageBox(window);
    box->setWindowTitle(ToQString(title));
    box->setTextFormat(Qt::PlainText);
    box->setText(CutUnits(ToQString(text.substr(0, kMaxBoxUnits * 4)), kMaxBoxUnits));
    box->setStandardButtons(ButtonsOf(buttons));
    box->setIcon(IconOf(icon));
    Dress(*box, icon);
    State().boxes.push_back({owner, box.data()});
    const int answer = box->exec();
    std::erase_if(State().boxes, [&](const OpenBox& open) { return open.box == box; });
    delete box;
    return answer == QMessageBox::Ok || answer == QMessageBox::Yes;
}

}  // namespace brickfall
