#include "platform/image.h"

#include <QBuffer>
#include <QByteArray>
#include <QImageReader>
#include <algorithm>
#include <array>
#include <cstring>
#include <mutex>

#include "platform/qt/picture.h"

namespace brickfall {
namespace {

constexpr int64_t kDecodeBudget = 150'000'000;
constexpr int kToolkitLimitMb = 128;  // of the toolkit for one picture
constexpr int kReducedSide = 1'024;

struct Format {
    const char* decoder;
    std::string_view magic;
    std::size_t second_at;  // where a second one stands
    std::string_view second;
    int bytes_a_pixel;  // that decoding holds at most, with the result: frames, coefficients, 16-bit channels
};
constexpr Format kFormats[] = {
    {"png", "\x89PNG\r\n\x1a\n", 0, "", 12},
    {"jpeg", "\xFF\xD8\xFF", 0, "", 8},  // read at a reduced size when large
    {"gif", "GIF8", 0, "", 16},
    {"bmp", "BM", 0, "", 12},
    {"webp", "RIFF", 8, "WEBP", 20},
};

const Format* FormatOf(std::string_view file) {
    for (const Format& format : kFormats) {
        if (!file.starts_with(format.magic)) continue;
        if (file.size() < format.second_at + format.second.size()) continue;
        if (file.substr(format.second_at, format.second.size()) == format.second) return &format;
    }
    return nullptr;
}

bool SizeAllowed(const QSize& size, const Format& format) {
    if (size.width() < 1 || size.height() < 1) return false;
    if (size.width() > kMaxImageSide || size.height() > kMaxImageSide) return false;
    return int64_t{size.width()} * size.height() * format.bytes_a_pixel <= kDecodeBudget;
}

constexpr std::array<uint32_t, 256> kCrcTable = [] {
    std::array<uint32_t, 256> table{};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t crc = byte;
        for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ (crc % 2 == 1 ? 0xEDB88320 : 0);
        table[byte] = crc;
    }
    return table;
}();

uint32_t Crc32(std::string_view bytes) {
    uint32_t crc = 0xFFFFFFFF;
    for (const char byte : bytes) crc = crc >> 8 ^ kCrcTable[(crc ^ static_cast<uint8_t>(byte)) & 255];
    return ~crc;
}

uint32_t BigEndian32(std::string_view bytes) {
    uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) value = value << 8 | static_cast<uint8_t>(bytes[i]);
    return value;
}

// The chunks of a PNG, up to the one that ends it: a file that was cut short or damaged is known here, where
// the decoder would complain on the terminal.
bool PngIsSound(std::string_view file) {
    constexpr std::size_t kMagicSize = 8;
    constexpr std::size_t kAroundData = 12;  // length, name and checksum
    std::size_t at = kMagicSize;
    while (at + kAroundData <= file.size()) {
        const std::size_t length = BigEndian32(file.substr(at));
        if (length > file.size() - at - kAroundData) return false;
        const std::string_view checked = file.substr(at + 4, 4 + length);
        const bool is_critical = checked[0] >= 'A' && checked[0] <= 'Z';
        if (is_critical && Crc32(checked) != BigEndian32(file.substr(at + 8 + length))) return false;
        if (checked == "IEND") return true;
        at += kAroundData + length;
    }
    return false;
}

thread_local bool decoding = false;
QtMessageHandler former_handler = nullptr;

void QuietHandler(QtMsgType type, const QMessageLogContext& context, const QString& text) {
    constexpr const char* kNoise[] = {
        "QStandardPaths: XDG_RUNTIME_DIR",  // it finds another
        "This plugin does not support",     // off screen
    };
    if (decoding && type != QtFatalMsg) return;
    for (const char* const noise : kNoise) {
        if (text.startsWith(QLatin1String(noise))) return;
    }
    former_handler(type, context, text);
}

// Nothing that the decoders say about broken pictures is shown in its scope.
class QuietScope {
  public:
    QuietScope() { decoding = true; }
    ~QuietScope() { decoding = false; }
    QuietScope(const QuietScope&) = delete;
    QuietScope& operator=(const QuietScope&) = delete;
};

}  // namespace

void PrepareDecoders() {
    static std::once_flag once;
    std::call_once(once, [] {
        former_handler = qInstallMessageHandler(nullptr);
        qInstallMessageHandler(QuietHandler);
        QImageReader::setAllocationLimit(kToolkitLimitMb);
    });
}

bool IsWhole(const Image& image) {
    return image.w > 0 && image.h > 0 &&
           image.pixels.size() == static_cast<std::size_t>(image.w) * static_cast<std::size_t>(image.h);
}

QImage OnPixelsOf(const Image& image) {
    return QImage(reinterpret_cast<const uchar*>(image.pixels.data()), image.w, image.h,
                  qsizetype{image.w} * 4, QImage::Format_ARGB32);
}

QImage SmoothlyScaled(const Image& image, int w, int h) {
    // Premultiplied first, so that transparent pixels lend no colour to their neighbours.
    const QImage picture = OnPixelsOf(image).convertToFormat(QImage::Format_ARGB32_Premultiplied);
    if (w == image.w && h == image.h) return picture;
    return picture.scaled(w, h, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}

Image FromQImage(QImage picture) {
    picture.convertTo(QImage::Format_ARGB32);
    if (picture.isNull()) return {};
    Image image = {picture.width(), picture.height(), {}};
    const auto row_pixels = static_cast<std::size_t>(image.w);
    image.pixels.resize(row_pixels * static_cast<std::size_t>(image.h));
    for (int y = 0; y < image.h; ++y) {
        std::memcpy(image.pixels.data() + row_pixels * static_cast<std::size_t>(y), picture.constScanLine(y),
                    row_pixels * sizeof(uint32_t));
    }
    return image;
}

std::optional<Image> DecodeImage(std::string_view file) {
    PrepareDecoders();
    const QuietScope quiet;
    const Format* const format = FormatOf(file);
    if (format == nullptr) return std::nullopt;
    if (format->decoder == std::string_view("png") && !PngIsSound(file)) return std::nullopt;
    QByteArray bytes = QByteArray::fromRawData(file.data(), static_cast<qsizetype>(file.size()));
    QBuffer buffer(&bytes);
    if (!buffer.open(QIODevice::ReadOnly)) return std::nullopt;
    QImageReader reader(&buffer, format->decoder);
    reader.setAutoDetectImageFormat(false);
    reader.setAutoTransform(false);
    const QSize size = reader.size();
    if (!SizeAllowed(size, *format)) return std::nullopt;
    const bool reduced =
        format->decoder == std::string_view("jpeg") && std::max(size.width(), size.height()) > kReducedSide;
    if (reduced) reader.setScaledSize(size.scaled(kReducedSide, kReducedSide, Qt::KeepAspectRatio));
    QImage picture = reader.read();
    if (picture.isNull() || !SizeAllowed(picture.size(), *format)) return std::nullopt;
    Image image = FromQImage(std::move(picture));
    if (!IsWhole(image)) return std::nullopt;
    return image;
}

Image ResizeImage(const Image& image, int w, int h) {
    if (!IsWhole(image) || w < 1 || h < 1) return {};
    return FromQImage(SmoothlyScaled(image, w, h));
}

}  // namespace brickfall
