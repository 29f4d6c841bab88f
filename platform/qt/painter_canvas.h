// painter_canvas.h - the canvas on the toolkit's painter, which must be active. Main thread only.
#pragma once

#include <QPainter>
#include <QPainterPath>

#include "platform/canvas.h"

namespace brickfall {

class PainterCanvas : public Canvas {
  public:
    PainterCanvas(QPainter& painter, Size size) : painter_(painter), size_(size) {}

    Size Extent() const override { return size_; }
    double Density() const override { return painter_.deviceTransform().m11(); }
    void Fill(const Rect& rect, Color color) override;
    void Pixel(Point at, Color color) override;
    void Line(Point from, Point to, Color color, int width) override;
    void FrameRoundRect(const Rect& rect, int corner, Color color, int width) override;
    void FillEllipse(const Rect& box, Color color) override;
    void FrameEllipse(const Rect& box, Color color, double width) override;
    void Text(const Rect& rect, std::string_view text, const Font& font, Color color, AlignX x, AlignY y,
              bool ellipsis) override;
    void Draw(const Image& image, const Rect& rect) override;
    void ClipRoundRect(const Rect& rect, int corner, const std::function<void()>& body) override;
    void ClipEllipse(const Rect& box, const std::function<void()>& body) override;

  private:
    void ClipPath(const QPainterPath& path, const std::function<void()>& body);

    QPainter& painter_;
    Size size_;
};

}  // namespace brickfall
