// controls.h - the controls as widgets. Main thread only.
#pragma once

#include <QLineEdit>
#include <QPlainTextEdit>
#include <QSlider>
#include <QTextLayout>
#include <QWidget>
#include <memory>
#include <string>

#include "platform/window.h"

namespace brickfall {

class WindowWidget;

// A control that has a text and can be clicked: shared by the buttons and the texts.
class ClickWidget : public QWidget {
  public:
    ClickWidget(WindowWidget& window, int id, std::string_view text, Font font, bool clickable);

    const std::string& Text() const { return text_; }
    virtual void SetText(std::string_view text);
    bool Clickable() const { return clickable_; }
    void SetClickable(bool clickable);
    virtual bool IsButton() const = 0;
    bool Spoken() const { return spoken_; }
    void SetSpoken() { spoken_ = true; }
    void Click();

  protected:
    bool event(QEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;

    ButtonState State() const;
    WindowWidget& Window() const { return window_; }
    int Id() const { return id_; }
    const Font& TextFont() const { return font_; }

  private:
    void SetState(bool inside, bool held, bool key_held);
    void Release();

    WindowWidget& window_;
    const int id_;
    std::string text_;
    const Font font_;
    bool clickable_;
    bool spoken_ = false;
    bool inside_ = false;    // the pointer is on it
    bool held_ = false;      // pressed by the pointer, wherever that is now
    bool key_held_ = false;  // pressed by the blank key
};

class ButtonWidget : public ClickWidget {
  public:
    ButtonWidget(WindowWidget& window, int id, std::string_view text, Font font);
    bool IsButton() const override { return true; }

  protected:
    void paintEvent(QPaintEvent* event) override;
};

class TextWidget : public ClickWidget {
  public:
    TextWidget(WindowWidget& window, int id, std::string_view text, Font font, bool clickable);
    bool IsButton() const override { return false; }
    void SetText(std::string_view text) override;

  protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

  private:
    void LayOut();

    std::unique_ptr<QTextLayout> layout_;  // made at the next paint
};

class EditWidget : public QPlainTextEdit {
  public:
    EditWidget(WindowWidget& window, const Font& font, int limit, Color text, Color background);

    void SetText(const QString& text);

  protected:
    bool event(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void inputMethodEvent(QInputMethodEvent* event) override;
    void insertFromMimeData(const QMimeData* source) override;

  private:
    qsizetype Room() const;  // for what replaces the selection
    void CutToLimit();

    const int limit_;
    bool cutting_ = false;
};

class FieldWidget : public QLineEdit {
  public:
    FieldWidget(WindowWidget& window, const Font& font, int limit, Color text, Color background);

  protected:
    void paintEvent(QPaintEvent* event) override;
};

class TrackBarWidget : public QSlider {
  public:
    explicit TrackBarWidget(QWidget* parent) : QSlider(Qt::Horizontal, parent) {}

  protected:
    void paintEvent(QPaintEvent* event) override;
};

// Roles, names and the press action of the controls above, for screen readers.
void InstallAccessibility();
void RemoveAccessibility();

}  // namespace brickfall
