#pragma once

#include "document/wallpaper_image.h"

#include <QHash>
#include <QImage>
#include <QObject>
#include <QPixmap>
#include <QString>
#include <QThreadPool>
#include <functional>
#include <memory>
#include <vector>

namespace lumivesper::ui {

// Display previews ready to paint, keyed by image id. Made on worker threads from the record's
// decoded preview, or from its file when it has none; painting never decodes. Until a preview is
// ready the caller gets a null image and paints a placeholder; previewReady says when to repaint.
class PreviewCache final : public QObject {
    Q_OBJECT

public:
    static constexpr int fullSide = 1024; // the single view
    static constexpr int iconSide = 360;  // cells, rows and timeline frames

    explicit PreviewCache(QObject* parent = nullptr);
    ~PreviewCache() override; // waits for the previews being made

    QImage icon(const document::WallpaperImage& image);
    QImage full(const document::WallpaperImage& image);
    // Drops the previews of images that are no longer in `images`.
    void retainOnly(const std::vector<document::WallpaperImage>& images);
    // `image` at `size`, scaled once and then kept in Qt's pixmap cache: repainting a grid or a
    // playing timeline costs a copy, not a smooth scale per cell.
    static QPixmap scaled(const QImage& image, QSize size);
    // Straight RGBA as the core decodes it, premultiplied as painting wants it.
    static QImage paintable(const platform::PixelImage& pixels);

    // Told on the main thread of each preview made from an image's file (the record had none),
    // so the document can keep it for whatever else shows the image.
    using FilePreviewHandler = std::function<void(const std::string& imageId,
                                                  std::shared_ptr<const platform::PixelImage>)>;
    void setFilePreviewHandler(FilePreviewHandler handler) {
        filePreviewHandler_ = std::move(handler);
    }

    // Blocks until every requested preview is made and delivered; for tests and benchmarks.
    void waitForPending();
    int pendingCount() const { return pending_; }

signals:
    void previewReady(const QString& imageId);

private:
    struct Entry {
        const void* source = nullptr; // the record's preview object, or null for its file
        QString sourcePath;
        QImage full;
        QImage icon;
        bool requested = false;
    };

    Entry& entryFor(const document::WallpaperImage& image);
    void deliver(const QString& id, const void* source, QImage full, QImage icon,
                 std::shared_ptr<const platform::PixelImage> decoded);

    QHash<QString, Entry> entries_;
    QThreadPool pool_;
    int pending_ = 0;
    FilePreviewHandler filePreviewHandler_;
};

} // namespace lumivesper::ui
