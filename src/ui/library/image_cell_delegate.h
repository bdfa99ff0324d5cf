#pragma once

#include <QStyledItemDelegate>

namespace lumivesper::ui {

// Paints one image as a grid cell (preview above, name and values below) or a list row
// (preview at the left): selection, the drop-target highlight and the tween badge included.
class ImageCellDelegate final : public QStyledItemDelegate {
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void setCellSize(QSize size, bool listRows) {
        cellSize_ = size;
        listRows_ = listRows;
    }

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

private:
    QSize cellSize_{220, 164};
    bool listRows_ = false;
};

// Draws `image` into `area` with its aspect kept, or a quiet placeholder while it is not ready.
void paintPreview(QPainter& painter, const QRectF& area, const QImage& image,
                  const QPalette& palette);

} // namespace lumivesper::ui
