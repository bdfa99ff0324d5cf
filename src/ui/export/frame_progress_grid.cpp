#include "ui/export/frame_progress_grid.h"

#include "ui/qt_text.h"
#include "ui/symbol_icons.h"

#include <QPainter>
#include <QPainterPath>
#include <QTimer>

#include <algorithm>

namespace lumivesper::ui {

using shell::ExportFrameStatus;

namespace {

constexpr double cornerRadius = 6;

// A white tick of the given size centred on `centre`.
void paintCheckmark(QPainter& painter, QPointF centre, double size, const QColor& colour) {
    QPainterPath tick;
    tick.moveTo(centre + QPointF(-0.5, 0.05) * size);
    tick.lineTo(centre + QPointF(-0.15, 0.4) * size);
    tick.lineTo(centre + QPointF(0.5, -0.35) * size);
    painter.setPen(
        QPen(colour, std::max(1.5, size * 0.16), Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.setBrush(Qt::NoBrush);
    painter.drawPath(tick);
}

} // namespace

FrameProgressGrid::FrameProgressGrid(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("frameProgressGrid"));
    setAccessibleName(QStringLiteral("Export frames"));
    spinner_ = new QTimer(this);
    spinner_->setInterval(80);
    connect(spinner_, &QTimer::timeout, this, [this] {
        spinnerAngle_ = (spinnerAngle_ + 30) % 360;
        update();
    });
    setFrames({});
}

void FrameProgressGrid::setFrames(const std::vector<shell::ExportFrameInfo>& frames) {
    groups_ = shell::frameGroups(frames);
    metrics_ = shell::frameStripMetrics(groups_);
    const bool spinning = std::any_of(groups_.begin(), groups_.end(), [](const auto& group) {
        return group.status() == ExportFrameStatus::upscaling;
    });
    if (spinning && !spinner_->isActive())
        spinner_->start();
    else if (!spinning)
        spinner_->stop();
    setFixedSize(sizeHint());
    update();
}

QSize FrameProgressGrid::sizeHint() const {
    double width = 2 * shell::FrameStripMetrics::padding;
    for (const auto& group : groups_)
        width += group.isKeyFrame ? metrics_.thumbnailSize : tweenTileWidth;
    if (!groups_.empty())
        width += shell::FrameStripMetrics::spacing * static_cast<double>(groups_.size() - 1);
    return {static_cast<int>(std::ceil(width)), static_cast<int>(std::ceil(metrics_.height()))};
}

const QImage& FrameProgressGrid::thumbnail(const shell::ExportFrameInfo& frame) {
    const QString id = toQString(frame.id);
    auto found = thumbnails_.find(id);
    if (found == thumbnails_.end()) {
        QImage converted;
        if (const auto& pixels = frame.thumbnail; pixels && !pixels->empty()) {
            converted = QImage(pixels->rgba.data(), pixels->width, pixels->height,
                               static_cast<qsizetype>(pixels->rowBytes()), QImage::Format_RGBA8888)
                            .copy();
        }
        found = thumbnails_.insert(id, converted);
    }
    return *found;
}

void FrameProgressGrid::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const double size = metrics_.thumbnailSize;
    const double top = (height() - size) / 2;
    double x = shell::FrameStripMetrics::padding;
    for (const auto& group : groups_) {
        if (group.isKeyFrame) {
            paintKeyFrame(painter, QRectF(x, top, size, size), group);
            x += size;
        } else {
            // Tween tiles are half as tall, centred on the key frames.
            paintTweenGroup(painter, QRectF(x, top + size / 4, tweenTileWidth, size / 2), group);
            x += tweenTileWidth;
        }
        x += shell::FrameStripMetrics::spacing;
    }
}

void FrameProgressGrid::paintKeyFrame(QPainter& painter, const QRectF& tile,
                                      const shell::FrameGroup& group) {
    QPainterPath rounded;
    rounded.addRoundedRect(tile, cornerRadius, cornerRadius);
    painter.save();
    painter.setClipPath(rounded);
    painter.fillPath(rounded, palette().color(QPalette::Mid));
    if (const QImage& image = thumbnail(group.frames.front()); !image.isNull()) {
        // Filled and cropped to the square, the aspect kept.
        const QSizeF scaled =
            QSizeF(image.size()).scaled(tile.size(), Qt::KeepAspectRatioByExpanding);
        painter.drawImage(
            QRectF(tile.center() - QPointF(scaled.width(), scaled.height()) / 2, scaled), image);
    } else {
        painter.setOpacity(0.5);
        symbolIcon("photo").paint(&painter, tile.adjusted(tile.width() / 4, tile.height() / 4,
                                                          -tile.width() / 4, -tile.height() / 4)
                                                .toRect());
        painter.setOpacity(1);
    }
    const ExportFrameStatus status = group.status();
    if (status == ExportFrameStatus::pending || status == ExportFrameStatus::upscaling)
        painter.fillPath(rounded, QColor(0, 0, 0, 128));
    painter.restore();

    const double side = tile.width();
    if (status == ExportFrameStatus::upscaling) {
        const double radius = side * 0.18;
        painter.setPen(QPen(Qt::white, std::max(2.0, side * 0.05), Qt::SolidLine, Qt::RoundCap));
        painter.setBrush(Qt::NoBrush);
        painter.drawArc(QRectF(tile.center() - QPointF(radius, radius), QSizeF(2, 2) * radius),
                        -spinnerAngle_ * 16, 270 * 16);
    } else if (status == ExportFrameStatus::complete) {
        const double disc = side * 0.45;
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(52, 199, 89));
        painter.drawEllipse(tile.center(), disc / 2, disc / 2);
        paintCheckmark(painter, tile.center(), side * 0.3, Qt::white);
    }
}

void FrameProgressGrid::paintTweenGroup(QPainter& painter, const QRectF& tile,
                                        const shell::FrameGroup& group) {
    QColor background = palette().color(QPalette::Text);
    background.setAlphaF(0.15f);
    painter.setPen(Qt::NoPen);
    painter.setBrush(background);
    painter.drawRoundedRect(tile, 4, 4);
    const QColor ink = palette().color(QPalette::Text);
    const double glyph = tile.width() / 2;
    if (group.status() == ExportFrameStatus::complete) {
        paintCheckmark(painter, tile.center(), glyph, QColor(52, 199, 89));
        return;
    }
    // A double-headed arrow: the blends between two key frames.
    const QPointF c = tile.center();
    const double half = glyph / 2 + 2;
    painter.setPen(QPen(ink, 1.5, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.drawLine(c - QPointF(half, 0), c + QPointF(half, 0));
    for (const double side : {-1.0, 1.0}) {
        const QPointF tip = c + QPointF(side * half, 0);
        painter.drawLine(tip, tip - QPointF(side * 3, 3));
        painter.drawLine(tip, tip - QPointF(side * 3, -3));
    }
}

} // namespace lumivesper::ui
