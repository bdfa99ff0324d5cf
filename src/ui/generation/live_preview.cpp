#include "ui/generation/live_preview.h"

#include <QPainter>
#include <QPainterPath>

namespace lumivesper::ui {

LivePreview::LivePreview(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("livePreview"));
    setAccessibleName(QStringLiteral("Live Preview"));
    setMinimumSize(320, 180);
    QSizePolicy policy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
}

void LivePreview::setPicture(const QImage& picture, const QString& caption) {
    picture_ = picture;
    caption_ = caption;
    setAccessibleDescription(caption);
    update();
}

void LivePreview::clear() {
    setPicture({}, {});
}

void LivePreview::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const QRectF frame = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    QPainterPath rounded;
    rounded.addRoundedRect(frame, 10, 10);

    if (picture_.isNull()) {
        // A quiet dusk sky that says what will come.
        QLinearGradient sky(frame.topLeft(), frame.bottomLeft());
        sky.setColorAt(0, QColor(0x1f, 0x2a, 0x5a));
        sky.setColorAt(0.65, QColor(0x6c, 0x4f, 0x8f));
        sky.setColorAt(1, QColor(0xf0, 0x8a, 0x3c));
        painter.fillPath(rounded, sky);
        painter.setPen(QColor(255, 255, 255, 220));
        QFont heading = font();
        heading.setPointSizeF(heading.pointSizeF() * 1.15);
        heading.setBold(true);
        painter.setFont(heading);
        painter.drawText(frame.adjusted(20, 0, -20, -20), Qt::AlignCenter,
                         QStringLiteral("Each phase appears here as it arrives"));
        return;
    }

    // The whole picture, its aspect kept, on a dark mat.
    painter.fillPath(rounded, QColor(0x10, 0x12, 0x18));
    painter.setClipPath(rounded);
    const QSizeF scaled = QSizeF(picture_.size()).scaled(frame.size(), Qt::KeepAspectRatio);
    const QRectF target(frame.center() - QPointF(scaled.width() / 2, scaled.height() / 2), scaled);
    painter.drawImage(target, picture_);
    if (!caption_.isEmpty()) {
        QFont bold = font();
        bold.setBold(true);
        painter.setFont(bold);
        const int textWidth = painter.fontMetrics().horizontalAdvance(caption_);
        const QRectF chip(target.left() + 12, target.bottom() - 36, textWidth + 24, 24);
        QPainterPath pill;
        pill.addRoundedRect(chip, 12, 12);
        painter.fillPath(pill, QColor(0, 0, 0, 150));
        painter.setPen(Qt::white);
        painter.drawText(chip, Qt::AlignCenter, caption_);
    }
}

} // namespace lumivesper::ui
