#include "ui/library/preview_cache.h"

#include "platform/image_io.h"
#include "ui/qt_text.h"

#include <QCoreApplication>
#include <QPixmapCache>
#include <QSet>

namespace lumivesper::ui {

namespace {

QImage limited(const QImage& image, int side) {
    if (image.width() <= side && image.height() <= side)
        return image;
    return image.scaled(side, side, Qt::KeepAspectRatio, Qt::SmoothTransformation);
}

} // namespace

QImage PreviewCache::paintable(const platform::PixelImage& pixels) {
    const QImage wrapped(pixels.rgba.data(), pixels.width, pixels.height,
                         static_cast<qsizetype>(pixels.rowBytes()), QImage::Format_RGBA8888);
    return wrapped.convertToFormat(QImage::Format_ARGB32_Premultiplied);
}

QPixmap PreviewCache::scaled(const QImage& image, QSize size) {
    const QString key = QStringLiteral("lumivesper-preview-%1-%2x%3")
                            .arg(image.cacheKey())
                            .arg(size.width())
                            .arg(size.height());
    QPixmap pixmap;
    if (!QPixmapCache::find(key, &pixmap)) {
        pixmap =
            QPixmap::fromImage(image.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation));
        QPixmapCache::insert(key, pixmap);
    }
    return pixmap;
}

PreviewCache::PreviewCache(QObject* parent) : QObject(parent) {
    // Room for every cell and frame of a large document at its present size.
    QPixmapCache::setCacheLimit(std::max(QPixmapCache::cacheLimit(), 64 * 1024));
    // Two decoders: enough to keep up with an import, and the window keeps a core to itself.
    pool_.setMaxThreadCount(2);
}

PreviewCache::~PreviewCache() {
    pool_.clear();
    pool_.waitForDone();
}

PreviewCache::Entry& PreviewCache::entryFor(const document::WallpaperImage& image) {
    const QString id = toQString(image.id.toString());
    const void* source = image.thumbnail.get();
    const QString sourcePath = image.sourcePath ? toQString(*image.sourcePath) : QString();
    Entry& entry = entries_[id];
    if (entry.requested && entry.source == source && entry.sourcePath == sourcePath)
        return entry;

    entry = Entry{source, sourcePath, {}, {}, true};
    ++pending_;
    auto thumbnail = image.thumbnail;
    auto path = image.sourcePath;
    pool_.start([this, id, source, thumbnail = std::move(thumbnail), path = std::move(path)] {
        QImage full;
        std::shared_ptr<const platform::PixelImage> decoded;
        try {
            if (thumbnail) {
                full = paintable(*thumbnail);
            } else if (path) {
                decoded = std::make_shared<const platform::PixelImage>(
                    platform::loadPreview(*path, fullSide));
                full = paintable(*decoded);
            }
        } catch (const platform::ImageIoError&) {
            // stays a placeholder: the file went or was never an image
        }
        full = limited(full, fullSide);
        QImage icon = limited(full, iconSide);
        QMetaObject::invokeMethod(
            this,
            [this, id, source, full = std::move(full), icon = std::move(icon),
             decoded = std::move(decoded)]() mutable {
                deliver(id, source, std::move(full), std::move(icon), std::move(decoded));
            },
            Qt::QueuedConnection);
    });
    return entry;
}

void PreviewCache::deliver(const QString& id, const void* source, QImage full, QImage icon,
                           std::shared_ptr<const platform::PixelImage> decoded) {
    --pending_;
    auto found = entries_.find(id);
    if (found == entries_.end() || found->source != source)
        return; // superseded or dropped meanwhile
    found->full = std::move(full);
    found->icon = std::move(icon);
    if (decoded && filePreviewHandler_) {
        // The record will hold this very preview: the entry stays valid for it, nothing is
        // made twice.
        found->source = decoded.get();
        filePreviewHandler_(toStdString(id), std::move(decoded));
    }
    emit previewReady(id);
}

QImage PreviewCache::icon(const document::WallpaperImage& image) {
    return entryFor(image).icon;
}

QImage PreviewCache::full(const document::WallpaperImage& image) {
    return entryFor(image).full;
}

void PreviewCache::retainOnly(const std::vector<document::WallpaperImage>& images) {
    QSet<QString> present;
    for (const auto& image : images)
        present.insert(toQString(image.id.toString()));
    for (auto it = entries_.begin(); it != entries_.end();) {
        if (present.contains(it.key()))
            ++it;
        else
            it = entries_.erase(it);
    }
}

void PreviewCache::waitForPending() {
    while (pending_ > 0) {
        pool_.waitForDone();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    }
}

} // namespace lumivesper::ui
