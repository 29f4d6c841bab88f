#include <QMessageBox>
#include <QPointer>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/automation.h"
#include "platform/qt/application.h"
#include "platform/qt/convert.h"
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
    State().boxes.push_back({owner, box.data()});
    const int answer = box->exec();
    std::erase_if(State().boxes, [&](const OpenBox& open) { return open.box == box; });
    delete box;
    return answer == QMessageBox::Ok || answer == QMessageBox::Yes;
}

}  // namespace brickfall
