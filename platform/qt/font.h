// font.h - typefaces, and lines of text shaped once and drawn often. Main thread only.
#pragma once

#include <QFont>
#include <QGlyphRun>
#include <QList>
#include <cstdint>
#include <string_view>

#include "platform/canvas.h"

namespace brickfall {

class FontImpl {
  public:
    QFont font;
    int ascent = 0;
    int height = 0;       // ascent and descent
    uint64_t serial = 0;  // never used twice
};

struct LineLayout {
    QList<QGlyphRun> glyphs;
    int width = 0;
    qreal baseline = 0;  // below the origin of the glyphs
};

inline constexpr int kNoElision = -1;

// Kept in a cache: the answer stands until the next call.
const LineLayout& LayOutLine(const FontImpl& font, std::string_view text, int elide_to = kNoElision);

void ForgetLayouts();  // before the toolkit ends

}  // namespace brickfall
