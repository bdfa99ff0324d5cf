#pragma once

#include "document/image_row_changes.h"
#include "document/wallpaper_image.h"

#include <QAbstractListModel>

#include <optional>
#include <vector>

namespace lumivesper::ui {

class AppStateBridge;
class PreviewCache;

// The document's images as one list model for the grid, the list and anyone else. It mirrors
// `images` row by row from the core's notifications, so views keep their scroll position and
// selection across edits, and never reads a half-changed list.
class ImageListModel final : public QAbstractListModel {
    Q_OBJECT

public:
    enum Role {
        IdRole = Qt::UserRole + 1, // the id as text
        IsTweenRole,
        IsSelectedRole,
        CaptionRole, // the sun or appearance values, one line
        CanGenerateTweensRole,
        IsDropTargetRole,
    };

    ImageListModel(AppStateBridge& bridge, PreviewCache& previews, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;
    Qt::DropActions supportedDragActions() const override;

    const document::WallpaperImage* imageAt(int row) const;
    std::optional<int> rowOf(const QString& id) const;

    // The key image under a dragged cell, highlighted until the drag leaves or drops.
    void setDropTarget(std::optional<int> row);
    std::optional<int> dropTarget() const { return dropTarget_; }

    static QString mimeTypeForId() { return QStringLiteral("text/plain"); }

private:
    void apply(const document::ImageRowChange& change);
    void refreshRows(int first, int last, const QList<int>& roles);

    AppStateBridge& bridge_;
    PreviewCache& previews_;
    std::vector<document::WallpaperImage> rows_;
    std::optional<int> dropTarget_;
};

// "06:30 · 12° · 120°" in time mode, "Light" or "Dark" in appearance mode.
QString imageCaption(const document::WallpaperImage& image, bool timeMode);

} // namespace lumivesper::ui
