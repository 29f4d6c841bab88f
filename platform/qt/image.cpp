#include "platform/image.h"

#include <QBuffer>
#include <QByteArray>
#include <QImageReader>
#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <utility>

#include "base/files.h"
#include "platform/picture_guard.h"
#include "platform/qt/picture.h"

namespace brickfall {
namespace {

constexpr int kToolkitLimitMb = 128;  // of the toolkit for one picture

const char* DecoderOf(PictureFormat format) {
    switch (format) {
        case PictureFormat::kPng:
            return "png";
        case PictureFormat::kJpeg:
            return "jpeg";
        case PictureFormat::kGif:
            return "gif";
        case PictureFormat::kBmp:
            return "bmp";
        case PictureFormat::kWebp:
            return "webp";
    }
    return "";
}

// Held while a decoder reads. Decoders are plug-ins of the toolkit, and workers may outlive it.
struct Decoders {
    std::shared_mutex mutex;
    bool closed = false;  // guarded by mutex
};
Decoders& decoders = *new Decoders;

// Premultiplied first, so that transparent pixels lend no colour to their neighbours.
QImage Scaled(QImage picture, const QSize& size) {
    picture.convertTo(QImage::Format_ARGB32_Premultiplied);
    if (picture.size() == size) return picture;
    return picture.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}

// A JPEG is made at a fraction of its size at once. The reader shares its pixels with no one afterwards.
QImage ReadStill(const std::string& file, const StillPicture& still, const QSize& kept) {
    QByteArray bytes = QByteArray::fromRawData(file.data(), static_cast<qsizetype>(file.size()));
    QBuffer buffer(&bytes);
    if (!buffer.open(QIODevice::ReadOnly)) return {};
    QImageReader reader(&buffer, DecoderOf(still.format));
    reader.setAutoDetectImageFormat(false);
    reader.setAutoTransform(false);
    const QSize size(still.w, still.h);
    if (reader.size() != size) return {};
    if (still.format == PictureFormat::kJpeg && kept != size) reader.setScaledSize(kept);
    return reader.read();
}

std::string Encoded(const Image& image, const char* format, int quality) {
    if (!IsWhole(image)) return {};
    QByteArray bytes;
    QBuffer buffer(&bytes);
    if (!buffer.open(QIODevice::WriteOnly) || !OnPixelsOf(image).save(&buffer, format, quality)) return {};
    return bytes.toStdString();
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

QImage SmoothlyScaled(const Image& image, int w, int h) { return Scaled(OnPixelsOf(image), {w, h}); }

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

void OpenDecoders() {
    const std::unique_lock lock(decoders.mutex);
    decoders.closed = false;
}

void CloseDecoders() {
    const std::unique_lock lock(decoders.mutex);
    decoders.closed = true;
}

std::optional<Image> DecodeImage(std::string file, int max_side) try {
    const std::optional<StillPicture> still = KeepStillPicture(file);
    if (!still) return std::nullopt;
    const std::shared_lock lock(decoders.mutex);
    if (decoders.closed) return std::nullopt;
    PrepareDecoders();
    const QuietScope quiet;
    const int side = std::clamp(max_side, 1, kMaxDecodedSide);
    const QSize kept = QSize(still->w, still->h).boundedTo({side, side});
    QImage picture = ReadStill(file, *still, kept);
    if (picture.isNull()) return std::nullopt;
    if (picture.size() != kept) picture = Scaled(std::move(picture), kept);
    Image image = FromQImage(std::move(picture));
    if (!IsWhole(image)) return std::nullopt;
    return image;
} catch (const std::bad_alloc&) {
    return std::nullopt;
}

std::string EncodePng(const Image& image) { return Encoded(image, "PNG", -1); }

std::string EncodeJpeg(const Image& image, int quality) { return Encoded(image, "JPEG", quality); }

bool SavePng(const Image& image, const std::string& path) {
    const std::string file = EncodePng(image);
    return !file.empty() && ReplaceFile(path, file, Flush::kLater);
}

Image ResizeImage(const Image& image, int w, int h) {
    if (!IsWhole(image) || w < 1 || h < 1) return {};
    return FromQImage(SmoothlyScaled(image, w, h));
}

}  // namespace brickfall
