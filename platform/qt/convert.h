// convert.h - between the platform's own types and the toolkit's.
#pragma once

#include <QColor>
#include <QRect>
#include <QSize>
#include <QString>
#include <string>
#include <string_view>

#include "platform/canvas.h"
#include "platform/geometry.h"

namespace brickfall {

inline QString ToQString(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}
inline QColor ToQColor(Color color) { return QColor(color.r, color.g, color.b); }
inline Color FromQColor(const QColor& color) { return Rgb(color.rgb() & 0xFFFFFF); }
inline QRect ToQRect(const Rect& rect) { return QRect(rect.x, rect.y, rect.w, rect.h); }
inline Rect FromQRect(const QRect& rect) { return {rect.x(), rect.y(), rect.width(), rect.height()}; }
inline QSize ToQSize(const Size& size) { return QSize(size.w, size.h); }
inline Size FromQSize(const QSize& size) { return {size.width(), size.height()}; }

// Control characters and line separators become blanks.
QString OneLine(QString text);

// The first `units` UTF-16 units at most; a pair of surrogates is not split.
QString CutUnits(QString text, qsizetype units);

}  // namespace brickfall
