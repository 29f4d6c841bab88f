#include "platform/qt/font.h"

#include <QByteArray>
#include <QCache>
#include <QFontDatabase>
#include <QFontMetrics>
#include <QTextLayout>
#include <QTextOption>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <string>
#include <tuple>

#include "platform/qt/convert.h"
#include "platform/typefaces.h"

namespace brickfall {
namespace {

constexpr int kCachedLines = 512;
constexpr std::size_t kMaxLineUnits = 4'096;  // of one line; no screen shows more

QFont::StyleHint HintOf(TypefaceKind kind) {
    switch (kind) {
        case TypefaceKind::kSans:
            return QFont::SansSerif;
        case TypefaceKind::kSerif:
            return QFont::Serif;
        case TypefaceKind::kMono:
            return QFont::TypeWriter;
    }
    return QFont::AnyStyle;
}

QFont PlainFont(std::string_view family, int weight, FontQuality quality) {
    QFont font;
    TypefaceKind kind = TypefaceKind::kSans;
    QString name = ToQString(family);
    for (const Typeface& typeface : kTypefaces) {
        if (family != typeface.asked) continue;
        kind = typeface.kind;
        if (!QFontDatabase::hasFamily(name)) name = QString::fromLatin1(typeface.stand_in);
    }
    if (!QFontDatabase::hasFamily(name)) name = QString::fromLatin1(GenericName(kind));
    font.setFamilies({name});
    const auto smoothing =
        quality == FontQuality::kClearType
            ? QFont::PreferAntialias
            : static_cast<QFont::StyleStrategy>(QFont::PreferAntialias | QFont::NoSubpixelAntialias);
    font.setStyleHint(HintOf(kind), smoothing);
    font.setWeight(static_cast<QFont::Weight>(std::clamp(weight, 1, 1'000)));
    font.setKerning(true);
    return font;
}

QCache<QByteArray, LineLayout>& Lines() {
    static auto& lines = *new QCache<QByteArray, LineLayout>(kCachedLines);
    return lines;
}

LineLayout* Shape(const FontImpl& font, const QString& text) {
    auto* const shaped = new LineLayout;
    QTextLayout layout(text, font.font);
    QTextOption option;
    option.setWrapMode(QTextOption::NoWrap);
    layout.setTextOption(option);
    layout.beginLayout();
    QTextLine line = layout.createLine();
    if (line.isValid()) {
        line.setLineWidth(1e6);
        line.setPosition({0, 0});
    }
    layout.endLayout();
    if (line.isValid()) {
        shaped->glyphs = line.glyphRuns();
        shaped->width = static_cast<int>(std::ceil(line.horizontalAdvance() - 1e-6));
        shaped->baseline = line.ascent();
    }
    return shaped;
}

}  // namespace

QString OneLine(QString text) {
    for (QChar& c : text) {
        const auto category = c.category();
        if (category == QChar::Other_Control || category == QChar::Separator_Line ||
            category == QChar::Separator_Paragraph) {
            c = QLatin1Char(' ');
        }
    }
    return text;
}

QString CutUnits(QString text, qsizetype units) {
    if (text.size() <= units) return text;
    text.truncate(std::max<qsizetype>(units, 0));
    if (!text.isEmpty() && text.back().isHighSurrogate()) text.chop(1);
    return text;
}

Font MakeFont(std::string_view family, int height, int weight, FontQuality quality) {
    using Asked = std::tuple<std::string, int, int, FontQuality>;
    static auto& made = *new std::map<Asked, Font>;
    static uint64_t last_serial = 0;
    Font& font = made[Asked(family, height, weight, quality)];
    if (font != nullptr) return font;

    auto fresh = std::make_shared<FontImpl>();
    fresh->font = PlainFont(family, weight, quality);
    // The largest size whose line fits.
    for (int pixels = std::clamp(height, 1, 1'000); pixels >= 1; --pixels) {
        fresh->font.setPixelSize(pixels);
        const QFontMetrics metrics(fresh->font);
        fresh->ascent = metrics.ascent();
        fresh->height = metrics.height();
        if (fresh->height <= height) break;
    }
    fresh->serial = ++last_serial;
    return font = std::move(fresh);
}

const LineLayout& LayOutLine(const FontImpl& font, std::string_view text, int elide_to) {
    // What cannot show is not shaped: no glyph is narrower than a pixel or so.
    std::size_t units = kMaxLineUnits;
    if (elide_to >= 0) units = std::min(units, static_cast<std::size_t>(elide_to) * 2 + 64);
    text = text.substr(0, units * 4);

    QByteArray key;
    key.reserve(static_cast<qsizetype>(text.size() + sizeof(font.serial) + sizeof(elide_to)));
    key.append(reinterpret_cast<const char*>(&font.serial), sizeof(font.serial));
    key.append(reinterpret_cast<const char*>(&elide_to), sizeof(elide_to));
    key.append(text.data(), static_cast<qsizetype>(text.size()));
    if (const LineLayout* const known = Lines().object(key)) return *known;

    QString shown = OneLine(CutUnits(ToQString(text), static_cast<qsizetype>(units)));
    if (elide_to >= 0) shown = QFontMetrics(font.font).elidedText(shown, Qt::ElideRight, elide_to);
    auto* const shaped = Shape(font, shown);
    Lines().insert(key, shaped);
    return *shaped;
}

void ForgetLayouts() { Lines().clear(); }

Size MeasureText(const Font& font, std::string_view text) {
    if (font == nullptr) return {};
    return {LayOutLine(*font, text).width, font->height};
}

std::string UpperInitial(std::string_view text) {
    const QString whole = ToQString(text);
    if (whole.isEmpty()) return {};
    const qsizetype units = whole.size() > 1 && whole[0].isHighSurrogate() ? 2 : 1;
    return whole.left(units).toUpper().left(units).toStdString();
}

}  // namespace brickfall
