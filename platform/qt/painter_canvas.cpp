#include "platform/qt/painter_canvas.h"

#include <QImage>
#include <QPen>
#include <algorithm>
#include <cmath>

#include "platform/qt/convert.h"
#include "platform/qt/font.h"
#include "platform/qt/picture.h"

namespace brickfall {
namespace {

constexpr int kMaxDeviceSide = 16'384;  // of a picture drawn scaled; beyond every screen

// Smooth edges for its scope.
class Smooth {
  public:
    explicit Smooth(QPainter& painter) : painter_(painter) {
        painter_.setRenderHint(QPainter::Antialiasing, true);
    }
    ~Smooth() { painter_.setRenderHint(QPainter::Antialiasing, false); }
    Smooth(const Smooth&) = delete;
    Smooth& operator=(const Smooth&) = delete;

  private:
    QPainter& painter_;
};

// The middle of an outline of this width along the inside of a rectangle's edges.
QRectF Inside(const Rect& rect, double width) {
    const double half = width / 2;
    return QRectF(ToQRect(rect)).adjusted(half, half, -half, -half);
}

int Start(int space, int used, bool centre, bool end) {
    if (centre) return (space - used) / 2;
    return end ? space - used : 0;
}

}  // namespace

void PainterCanvas::Fill(const Rect& rect, Color color) {
    if (rect.w > 0 && rect.h > 0) painter_.fillRect(ToQRect(rect), ToQColor(color));
}

void PainterCanvas::Pixel(Point at, Color color) { Fill({at.x, at.y, 1, 1}, color); }

void PainterCanvas::Line(Point from, Point to, Color color, int width) {
    if (width < 1) return;
    const int before = width / 2;
    if (from.x == to.x || from.y == to.y) {
        const int left = std::min(from.x, to.x);
        const int top = std::min(from.y, to.y);
        const int across = std::abs(from.x - to.x) + 1;
        const int down = std::abs(from.y - to.y) + 1;
        Fill(from.y == to.y ? Rect{left, top - before, across, width} : Rect{left - before, top, width, down},
             color);
        return;
    }
    const Smooth smooth(painter_);
    QPen pen(ToQColor(color), width);
    pen.setCapStyle(width == 1 ? Qt::SquareCap : Qt::RoundCap);
    painter_.setPen(pen);
    const double middle = width % 2 == 1 ? 0.5 : 0;
    painter_.drawLine(QPointF(from.x + middle, from.y + middle), QPointF(to.x + middle, to.y + middle));
}

void PainterCanvas::FrameRoundRect(const Rect& rect, int corner, Color color, int width) {
    if (width < 1 || rect.w < width || rect.h < width) return;
    if (corner <= 0) return FrameRect(*this, rect, color, width);
    const Smooth smooth(painter_);
    painter_.setPen(QPen(ToQColor(color), width));
    painter_.setBrush(Qt::NoBrush);
    const double radius = std::max(0.0, (corner - width) / 2.0);
    painter_.drawRoundedRect(Inside(rect, width), radius, radius);
}

void PainterCanvas::FillEllipse(const Rect& box, Color color) {
    const Smooth smooth(painter_);
    painter_.setPen(Qt::NoPen);
    painter_.setBrush(ToQColor(color));
    painter_.drawEllipse(QRectF(ToQRect(box)));
}

void PainterCanvas::FrameEllipse(const Rect& box, Color color, double width) {
    const Smooth smooth(painter_);
    painter_.setPen(QPen(ToQColor(color), width));
    painter_.setBrush(Qt::NoBrush);
    painter_.drawEllipse(Inside(box, width));
}

void PainterCanvas::Text(const Rect& rect, std::string_view text, const Font& font, Color color, AlignX x,
                         AlignY y, bool ellipsis) {
    if (font == nullptr || text.empty() || rect.w <= 0 || rect.h <= 0) return;
    const LineLayout& line = LayOutLine(*font, text, ellipsis ? rect.w : kNoElision);
    const int left = rect.x + Start(rect.w, line.width, x == AlignX::kCentre, x == AlignX::kRight);
    const int top = rect.y + Start(rect.h, font->height, y == AlignY::kCentre, y == AlignY::kBottom);
    painter_.save();
    painter_.setClipRect(ToQRect(rect), Qt::IntersectClip);
    painter_.setPen(ToQColor(color));
    const QPointF origin(left, top + font->ascent - line.baseline);
    for (const QGlyphRun& glyphs : line.glyphs) painter_.drawGlyphRun(origin, glyphs);
    painter_.restore();
}

void PainterCanvas::Draw(const Image& image, const Rect& rect) {
    if (!IsWhole(image) || rect.w <= 0 || rect.h <= 0) return;
    // Scaled for the device's own pixels, so that nothing is scaled twice.
    const QTransform& to_device = painter_.deviceTransform();
    const int w =
        static_cast<int>(std::lround(std::clamp(rect.w * to_device.m11(), 1.0, 1.0 * kMaxDeviceSide)));
    const int h =
        static_cast<int>(std::lround(std::clamp(rect.h * to_device.m22(), 1.0, 1.0 * kMaxDeviceSide)));
    painter_.drawImage(ToQRect(rect), SmoothlyScaled(image, w, h));
}

void PainterCanvas::ClipPath(const QPainterPath& path, const std::function<void()>& body) {
    painter_.save();
    painter_.setRenderHint(QPainter::Antialiasing, true);  // an edge as smooth as a filled shape's
    painter_.setClipPath(path, Qt::IntersectClip);
    painter_.setRenderHint(QPainter::Antialiasing, false);
    body();
    painter_.restore();
}

void PainterCanvas::ClipRoundRect(const Rect& rect, int corner, const std::function<void()>& body) {
    QPainterPath path;
    path.addRoundedRect(QRectF(ToQRect(rect)), corner / 2.0, corner / 2.0);
    ClipPath(path, body);
}

void PainterCanvas::ClipEllipse(const Rect& box, const std::function<void()>& body) {
    QPainterPath path;
    path.addEllipse(QRectF(ToQRect(box)));
    ClipPath(path, body);
}

Image DrawToImage(Size size, const std::function<void(Canvas&)>& body, int scale) {
    if (size.w < 1 || size.h < 1 || scale < 1) return {};
    QImage picture(size.w * scale, size.h * scale, QImage::Format_ARGB32_Premultiplied);
    if (picture.isNull()) return {};
    picture.fill(Qt::transparent);
    picture.setDevicePixelRatio(scale);
    {
        QPainter painter(&picture);
        PainterCanvas canvas(painter, size);
        body(canvas);
    }
    return FromQImage(std::move(picture));
}

void PaintOnImage(Image& image, const std::function<void(Canvas&)>& body, int scale) {
    if (!IsWhole(image) || scale < 1) return;
    QImage picture(reinterpret_cast<uchar*>(image.pixels.data()), image.w, image.h, qsizetype{image.w} * 4,
                   QImage::Format_RGB32);
    picture.setDevicePixelRatio(scale);
    QPainter painter(&picture);
    PainterCanvas canvas(painter, {image.w / scale, image.h / scale});
    body(canvas);
}

}  // namespace brickfall
