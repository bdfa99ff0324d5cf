#include "ui/library/image_cell_delegate.h"

#include "ui/library/image_list_model.h"
#include "ui/library/preview_cache.h"

#include <QApplication>
#include <QPainter>
#include <QPainterPath>

namespace lumivesper::ui {

void paintPreview(QPainter& painter, const QRectF& area, const QImage& image,
                  const QPalette& palette) {
    if (image.isNull()) {
        QColor faint = palette.color(QPalette::Text);
        faint.setAlphaF(0.08f);
        painter.fillRect(area, faint);
        return;
    }
    QSize size = image.size();
    size.scale(area.size().toSize(), Qt::KeepAspectRatio);
    const QPointF topLeft(area.center().x() - size.width() / 2.0,
                          area.center().y() - size.height() / 2.0);
    painter.drawPixmap(topLeft.toPoint(), PreviewCache::scaled(image, size));
}

void ImageCellDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                              const QModelIndex& index) const {
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    const QPalette& palette = option.palette;
    const QRectF cell = QRectF(option.rect).adjusted(1, 1, -1, -1);
    const bool selected = index.data(ImageListModel::IsSelectedRole).toBool();
    const bool dropTarget = index.data(ImageListModel::IsDropTargetRole).toBool();
    const bool tween = index.data(ImageListModel::IsTweenRole).toBool();

    QColor background = palette.color(QPalette::Base);
    if (option.state & QStyle::State_MouseOver)
        background = palette.color(QPalette::AlternateBase);
    QPainterPath outline;
    outline.addRoundedRect(cell, 8, 8);
    painter->fillPath(outline, background);

    const int textLines = 2;
    const int lineHeight = option.fontMetrics.height();
    QRectF previewArea;
    QRectF textArea;
    if (listRows_) {
        previewArea = QRectF(cell.left() + 6, cell.top() + 4, cell.height() * 16 / 9 - 8,
                             cell.height() - 8);
        textArea = QRectF(previewArea.right() + 12, cell.top(), cell.right() - previewArea.right() - 16,
                          cell.height());
    } else {
        previewArea = cell.adjusted(6, 6, -6, -(textLines * lineHeight + 10));
        textArea = QRectF(cell.left() + 8, previewArea.bottom() + 4, cell.width() - 16,
                          textLines * lineHeight + 4);
    }
    paintPreview(*painter, previewArea,
                 qvariant_cast<QImage>(index.data(Qt::DecorationRole)), palette);

    if (tween) {
        // The badge: a small pill in the preview's corner.
        const QString badge = QStringLiteral("Tween");
        QFont font = option.font;
        font.setPointSizeF(font.pointSizeF() * 0.8);
        painter->setFont(font);
        const QFontMetrics metrics(font);
        const QRectF pill(previewArea.left() + 6, previewArea.top() + 6,
                          metrics.horizontalAdvance(badge) + 12, metrics.height() + 2);
        QColor pillColour = palette.color(QPalette::Highlight);
        pillColour.setAlphaF(0.85f);
        QPainterPath pillPath;
        pillPath.addRoundedRect(pill, pill.height() / 2, pill.height() / 2);
        painter->fillPath(pillPath, pillColour);
        painter->setPen(palette.color(QPalette::HighlightedText));
        painter->drawText(pill, Qt::AlignCenter, badge);
        painter->setFont(option.font);
    }

    painter->setPen(palette.color(QPalette::Text));
    const QString name = option.fontMetrics.elidedText(
        index.data(Qt::DisplayRole).toString(), Qt::ElideMiddle, int(textArea.width()));
    const QString caption = index.data(ImageListModel::CaptionRole).toString();
    const Qt::Alignment align = listRows_ ? Qt::AlignLeft : Qt::AlignHCenter;
    const QRectF nameLine(textArea.left(),
                          listRows_ ? textArea.center().y() - lineHeight : textArea.top(),
                          textArea.width(), lineHeight);
    painter->drawText(nameLine, align | Qt::AlignVCenter, name);
    QColor secondary = palette.color(QPalette::Text);
    secondary.setAlphaF(0.6f);
    painter->setPen(secondary);
    painter->drawText(nameLine.translated(0, lineHeight), align | Qt::AlignVCenter, caption);

    if (selected || dropTarget) {
        QPen pen(palette.color(QPalette::Highlight), dropTarget ? 3 : 2);
        if (dropTarget)
            pen.setStyle(Qt::DashLine);
        painter->setPen(pen);
        painter->setBrush(Qt::NoBrush);
        painter->drawPath(outline);
    }
    painter->restore();
}

QSize ImageCellDelegate::sizeHint(const QStyleOptionViewItem&, const QModelIndex&) const {
    return cellSize_;
}

} // namespace lumivesper::ui
