#include "ui/library/image_list_model.h"

#include "document/app_state.h"
#include "document/image_hours.h"
#include "shell/timeline_playback.h"
#include "shell/tween_workflow.h"
#include "ui/library/app_state_bridge.h"
#include "ui/library/preview_cache.h"
#include "ui/qt_text.h"

#include <QMimeData>

namespace lumivesper::ui {

using Kind = document::ImageRowChange::Kind;

QString imageCaption(const document::WallpaperImage& image, bool timeMode) {
    if (!timeMode)
        return image.isLight.value_or(true) ? QStringLiteral("Light") : QStringLiteral("Dark");
    const QString hour =
        toQString(shell::TimelinePlayback::hourLabel(document::effectiveHour(image)));
    if (!image.altitude || !image.azimuth)
        return hour;
    return QStringLiteral("%1 · %2° · %3°")
        .arg(hour)
        .arg(*image.altitude, 0, 'f', 0)
        .arg(*image.azimuth, 0, 'f', 0);
}

ImageListModel::ImageListModel(AppStateBridge& bridge, PreviewCache& previews, QObject* parent)
    : QAbstractListModel(parent), bridge_(bridge), previews_(previews),
      rows_(bridge.appState().images()) {
    connect(&bridge_, &AppStateBridge::imageRowsChanged, this, &ImageListModel::apply);
    connect(&bridge_, &AppStateBridge::selectionChanged, this, [this] {
        refreshRows(0, rowCount() - 1, {IsSelectedRole});
    });
    // Mode and neighbours decide captions and where tweens can go.
    connect(&bridge_, &AppStateBridge::documentChanged, this, [this] {
        refreshRows(0, rowCount() - 1, {CaptionRole, CanGenerateTweensRole});
    });
    connect(&previews_, &PreviewCache::previewReady, this, [this](const QString& id) {
        if (const auto row = rowOf(id))
            refreshRows(*row, *row, {Qt::DecorationRole});
    });
}

void ImageListModel::apply(const document::ImageRowChange& change) {
    const auto& images = bridge_.appState().images();
    const int first = static_cast<int>(change.first);
    const int last = static_cast<int>(change.first + change.count) - 1;
    const auto at = [](std::size_t row) { return static_cast<std::ptrdiff_t>(row); };
    dropTarget_.reset();
    switch (change.kind) {
    case Kind::inserted:
        beginInsertRows({}, first, last);
        rows_.insert(rows_.begin() + at(change.first), images.begin() + at(change.first),
                     images.begin() + at(change.first + change.count));
        endInsertRows();
        return;
    case Kind::removed:
        beginRemoveRows({}, first, last);
        rows_.erase(rows_.begin() + at(change.first),
                    rows_.begin() + at(change.first + change.count));
        endRemoveRows();
        return;
    case Kind::changed:
        std::copy(images.begin() + at(change.first),
                  images.begin() + at(change.first + change.count), rows_.begin() + at(change.first));
        refreshRows(first, last, {});
        return;
    case Kind::moved: {
        const int to = static_cast<int>(change.destination);
        // Qt counts the destination in the list before the move.
        beginMoveRows({}, first, first, {}, to > first ? to + 1 : to);
        auto moved = std::move(rows_[change.first]);
        rows_.erase(rows_.begin() + at(change.first));
        rows_.insert(rows_.begin() + at(change.destination), std::move(moved));
        endMoveRows();
        return;
    }
    }
}

void ImageListModel::refreshRows(int first, int last, const QList<int>& roles) {
    if (first > last)
        return;
    emit dataChanged(index(first), index(last), roles);
}

int ImageListModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

const document::WallpaperImage* ImageListModel::imageAt(int row) const {
    if (row < 0 || row >= rowCount())
        return nullptr;
    return &rows_[static_cast<std::size_t>(row)];
}

std::optional<int> ImageListModel::rowOf(const QString& id) const {
    const auto wanted = platform::Uuid::parse(toStdString(id));
    if (!wanted)
        return std::nullopt;
    for (std::size_t row = 0; row < rows_.size(); ++row)
        if (rows_[row].id == *wanted)
            return static_cast<int>(row);
    return std::nullopt;
}

QVariant ImageListModel::data(const QModelIndex& index, int role) const {
    const auto* image = imageAt(index.row());
    if (!image || index.parent().isValid())
        return {};
    const auto& state = bridge_.appState();
    switch (role) {
    case Qt::DisplayRole:
    case Qt::AccessibleTextRole:
        return toQString(image->fileName);
    case Qt::ToolTipRole:
        return toQString(image->sourcePath ? image->sourcePath->string() : image->fileName);
    case Qt::DecorationRole:
        return previews_.icon(*image);
    case IdRole:
        return toQString(image->id.toString());
    case IsTweenRole:
        return image->isTween;
    case IsSelectedRole:
        return state.selectedImageIds().contains(image->id);
    case CaptionRole:
        return imageCaption(*image, state.mode() == document::WallpaperMode::time);
    case CanGenerateTweensRole:
        return shell::canGenerateTweens(rows_, image->id);
    case IsDropTargetRole:
        return dropTarget_ == index.row();
    default:
        return {};
    }
}

Qt::ItemFlags ImageListModel::flags(const QModelIndex& index) const {
    const auto* image = imageAt(index.row());
    if (!image)
        return Qt::NoItemFlags;
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemNeverHasChildren;
    if (!image->isTween) // tweens move only with their key image, and nothing lands on one
        flags |= Qt::ItemIsDragEnabled | Qt::ItemIsDropEnabled;
    return flags;
}

QStringList ImageListModel::mimeTypes() const {
    return {mimeTypeForId()};
}

QMimeData* ImageListModel::mimeData(const QModelIndexList& indexes) const {
    for (const auto& index : indexes) {
        const auto* image = imageAt(index.row());
        if (image && !image->isTween) {
            auto* data = new QMimeData;
            data->setText(toQString(image->id.toString()));
            return data;
        }
    }
    return nullptr;
}

Qt::DropActions ImageListModel::supportedDragActions() const {
    return Qt::MoveAction;
}

void ImageListModel::setDropTarget(std::optional<int> row) {
    if (row == dropTarget_)
        return;
    const auto former = dropTarget_;
    dropTarget_ = row;
    for (const auto& changed : {former, row})
        if (changed)
            refreshRows(*changed, *changed, {IsDropTargetRole});
}

} // namespace lumivesper::ui
