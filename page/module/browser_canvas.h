// browser_canvas.h - a canvas over that of a web page. What it draws with is handed in by the page's script;
// texts and pictures lie in this module's memory.
#pragma once

#include "platform/canvas.h"

namespace brickfall {

class BrowserCanvas final : public Canvas {
  public:
    BrowserCanvas(Size extent, double density) : extent_(extent), density_(density) {}

    Size Extent() const override { return extent_; }
    double Density() const override { return density_; }
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
    Size extent_;
    double density_;
};

}  // namespace brickfall
