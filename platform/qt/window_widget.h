// window_widget.h - a top-level window or a child window of the cabinet as a widget. Main thread only.
#pragma once

#include <QTimer>
#include <QWidget>
#include <map>
#include <optional>

#include "platform/window.h"

namespace brickfall {

class WindowWidget : public QWidget {
  public:
    WindowWidget(WindowId id, const WindowOptions& options, QWidget* owner, WindowProcedure procedure);
    WindowWidget(WindowId id, WindowWidget& parent, Color background, WindowProcedure procedure);

    WindowId Id() const { return id_; }
    Color Background() const { return background_; }
    bool IsTopLevel() const { return top_level_; }
    bool Resizable() const { return resizable_; }

    // False when it is not handled or the window is gone.
    bool Dispatch(Message& message);
    bool Dispatch(MessageType type) {
        Message message{.type = type};
        return Dispatch(message);
    }

    void Open();                     // counts as a window from now on; sends kCreate
    void Destroy();                  // counts as none; the widget goes when no procedure runs
    void Forget() { gone_ = true; }  // its procedure is not called any more

    QWidget* Control(int id) const;
    const std::map<int, QWidget*>& Controls() const { return controls_; }
    void AddControl(int id, QWidget* control);
    void RemoveControl(int id);
    int ControlOf(const QWidget* widget) const;  // 0: not on one of them

    // What is typed goes to the window itself.
    void TakeFocus();

    void SetClientSize(QSize size);
    void SetOuterSize(Size size);
    void MoveOuter(QPoint at);
    void SetMinimum(QSize client, QSize outer);
    // To be called when the frame may have become known.
    void Settle();
    void CheckSize();  // sends kSize if it has changed
    QMargins Frame() const;
    bool Maximized() const;   // now, or below the full screen
    bool FullScreen() const;  // now, or as soon as the window manager has done what was asked for
    void SetFullScreen(bool on);
    void ShowFullScreen(bool maximized_below);

    // With the frame, where it stands or will stand once the window manager has done what was asked for.
    QRect OuterRect() const;
    QRect NormalOuterRect() const;  // the same as it will be restored

    std::map<int, QTimer*> timers;

  protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void moveEvent(QMoveEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void changeEvent(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;

  private:
    void Prepare();
    bool Framed() const;
    QRect WithWishes(QRect outer) const;
    void ApplyMinimum();
    void FitScreen();
    bool CanBePlaced() const;
    void AskForWishes();
    void LookAtWishes();
    void WantFullScreen(bool on, bool maximized_below);
    void AskForState();
    void LookAtState();
    void PlacedByUser();
    void OnQuiet();

    const WindowId id_;
    const bool top_level_;
    const bool resizable_;
    const Color background_;
    WindowProcedure procedure_;
    std::map<int, QWidget*> controls_;
    bool destroying_ = false;
    bool gone_ = false;
    int wheel_rest_ = 0;    // of its last turns, less than a pixel
    bool pressed_ = false;  // by the pointer, on the window itself
    QSize told_size_;
    QSize minimum_client_;
    QSize minimum_outer_;
    // Asked for with the frame. A wish is forgotten when the frame is as wished, and not before: what the
    // window manager makes of it meanwhile, while the frame is not known yet or the window is maximised, is
    // not where the window belongs.
    std::optional<QSize> wanted_outer_;
    std::optional<QPoint> wanted_place_;
    QTimer wish_look_;                      // runs while the window manager has time to do what it was asked
    int wish_tries_ = 0;                    // left, since some place windows as they like
    bool place_seen_ = false;               // the one that it has first, with its frame
    std::optional<QMargins> normal_frame_;  // seen while neither maximised nor minimised
    std::optional<bool> wanted_full_screen_;  // asked for, and not seen yet while all was quiet
    QTimer state_look_;                       // runs while the window manager changes the state
    int state_tries_ = 0;                     // left, since some refuse
    bool maximized_below_ = false;            // the full screen; its state leaves that out
    QTimer quiet_;                            // runs while the window is moved or sized
    QRect settled_rect_;                      // where it stood when it was last quiet
};

}  // namespace brickfall
