#include "ui/library/image_list_view.h"

#include "ui/library/image_cell_delegate.h"
#include "ui/library/image_list_model.h"

#include <QApplication>
#include <QContextMenuEvent>
#include <QDrag>
#include <QDragEnterEvent>
#include <QMimeData>
#include <QMouseEvent>

namespace lumivesper::ui {

ImageListView::ImageListView(ImageListModel& model, QWidget* parent)
    : QListView(parent), model_(model), delegate_(new ImageCellDelegate(this)) {
    setModel(&model_);
    setItemDelegate(delegate_);
    // The document holds the selection; the view only paints it.
    setSelectionMode(QAbstractItemView::NoSelection);
    setMouseTracking(true);
    setDropIndicatorShown(false);
    setUniformItemSizes(true);
    setResizeMode(QListView::Adjust);
    setFrameShape(QFrame::NoFrame);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setAccessibleName(QStringLiteral("Images"));
    setGridLayout(true);
}

void ImageListView::setGridLayout(bool grid) {
    setViewMode(grid ? QListView::IconMode : QListView::ListMode);
    // Static, so that Qt never moves cells on its own; that also turns dragging and dropping
    // off, and the document's reorder needs both back.
    setMovement(QListView::Static);
    setDragEnabled(true);
    viewport()->setAcceptDrops(true);
    setWrapping(grid);
    setFlow(grid ? QListView::LeftToRight : QListView::TopToBottom);
    setSpacing(grid ? 0 : 4);
    updateCellSize();
}

void ImageListView::updateCellSize() {
    const int width = viewport()->width();
    if (!isGridLayout()) {
        delegate_->setCellSize(QSize(std::max(width - 8, 200), 76), true);
        setGridSize({});
        doItemsLayout();
        return;
    }
    // As many columns as fit at the minimum width, then the cells share what is left, up to
    // the maximum; the grid's cells stand 16 apart.
    const int available = std::max(width - gridSpacing, minimumCellWidth);
    const int columns = std::max(1, available / (minimumCellWidth + gridSpacing));
    const int cellWidth =
        std::min(maximumCellWidth, available / columns - gridSpacing);
    const int textHeight = 2 * fontMetrics().height() + 14;
    const QSize cell(cellWidth, cellWidth * 9 / 16 + textHeight + 12);
    delegate_->setCellSize(cell, false);
    setGridSize(cell + QSize(gridSpacing, gridSpacing));
    doItemsLayout();
}

void ImageListView::resizeEvent(QResizeEvent* event) {
    QListView::resizeEvent(event);
    updateCellSize();
}

void ImageListView::mousePressEvent(QMouseEvent* event) {
    setFocus(Qt::MouseFocusReason);
    const QModelIndex index = indexAt(event->position().toPoint());
    pressedRow_ = index.isValid() ? index.row() : -1;
    pressPosition_ = event->position().toPoint();
    if (event->button() == Qt::LeftButton && index.isValid()) {
        setCurrentIndex(index);
        emit clicked(index.row(), event->modifiers());
    }
}

void ImageListView::mouseMoveEvent(QMouseEvent* event) {
    if (!(event->buttons() & Qt::LeftButton) || !pressPosition_ || pressedRow_ < 0) {
        QListView::mouseMoveEvent(event);
        return;
    }
    if ((event->position().toPoint() - *pressPosition_).manhattanLength() <
        QApplication::startDragDistance())
        return;
    const QModelIndex pressed = model_.index(pressedRow_);
    pressPosition_.reset();
    if (!(model_.flags(pressed) & Qt::ItemIsDragEnabled))
        return; // tweens are not dragged on their own
    auto* drag = new QDrag(this);
    drag->setMimeData(model_.mimeData({pressed}));
    const QImage preview = qvariant_cast<QImage>(pressed.data(Qt::DecorationRole));
    if (!preview.isNull())
        drag->setPixmap(QPixmap::fromImage(preview.scaled(120, 120, Qt::KeepAspectRatio)));
    drag->exec(Qt::MoveAction);
}

void ImageListView::mouseReleaseEvent(QMouseEvent* event) {
    pressPosition_.reset();
    QListView::mouseReleaseEvent(event);
}

void ImageListView::mouseDoubleClickEvent(QMouseEvent* event) {
    const QModelIndex index = indexAt(event->position().toPoint());
    if (index.isValid() && event->button() == Qt::LeftButton)
        emit doubleClicked(index.row());
}

void ImageListView::contextMenuEvent(QContextMenuEvent* event) {
    const QModelIndex index = indexAt(event->pos());
    if (index.isValid())
        emit contextMenuAt(index.row(), event->globalPos());
}

void ImageListView::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Space && event->modifiers() == Qt::NoModifier) {
        emit spacePressed();
        return;
    }
    QListView::keyPressEvent(event);
}

std::optional<int> ImageListView::reorderTarget(QPoint position) const {
    const QModelIndex index = indexAt(position);
    if (!index.isValid() || !(model_.flags(index) & Qt::ItemIsDropEnabled))
        return std::nullopt;
    return index.row();
}

void ImageListView::dragEnterEvent(QDragEnterEvent* event) {
    if (event->mimeData()->hasUrls() || event->mimeData()->hasText())
        event->acceptProposedAction();
    else
        event->ignore();
}

void ImageListView::dragMoveEvent(QDragMoveEvent* event) {
    if (event->mimeData()->hasUrls()) {
        model_.setDropTarget(std::nullopt);
        event->acceptProposedAction();
        return;
    }
    const auto target = event->mimeData()->hasText()
                            ? reorderTarget(event->position().toPoint())
                            : std::nullopt;
    model_.setDropTarget(target);
    if (target)
        event->acceptProposedAction();
    else
        event->ignore();
}

void ImageListView::dragLeaveEvent(QDragLeaveEvent* event) {
    model_.setDropTarget(std::nullopt);
    event->accept();
}

void ImageListView::dropEvent(QDropEvent* event) {
    model_.setDropTarget(std::nullopt);
    const QMimeData* dropped = event->mimeData();
    if (dropped->hasUrls()) {
        event->acceptProposedAction();
        emit filesDropped(dropped->urls());
        return;
    }
    const auto target = dropped->hasText() ? reorderTarget(event->position().toPoint()) : std::nullopt;
    if (!target) {
        event->ignore();
        return;
    }
    event->acceptProposedAction();
    emit reorderDropped(dropped->text().trimmed(), *target);
}

} // namespace lumivesper::ui
