#include "ui/generation/phase_list.h"

#include "ui/generation/sun_arc_view.h"
#include "ui/qt_text.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QVBoxLayout>

namespace lumivesper::ui {

using generation::PhaseIndicator;
using generation::timeOfDayPhases;

namespace {

constexpr QSize thumbnailSize(48, 27);

// A rounded thumbnail: the picture cropped to fill, or the phase's sky colour until it comes.
QPixmap thumbnail(const QImage& picture, const QColor& sky, qreal ratio) {
    QPixmap pixmap(thumbnailSize * ratio);
    pixmap.setDevicePixelRatio(ratio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const QRectF frame(QPointF(0, 0), QSizeF(thumbnailSize));
    QPainterPath rounded;
    rounded.addRoundedRect(frame, 5, 5);
    painter.setClipPath(rounded);
    if (picture.isNull()) {
        QColor faded = sky;
        faded.setAlpha(70);
        painter.fillRect(frame, faded);
    } else {
        const QSizeF scaled =
            QSizeF(picture.size()).scaled(frame.size(), Qt::KeepAspectRatioByExpanding);
        painter.drawImage(
            QRectF(frame.center() - QPointF(scaled.width() / 2, scaled.height() / 2), scaled),
            picture);
    }
    return pixmap;
}

QString statusStyle(PhaseIndicator indicator) {
    switch (indicator) {
    case PhaseIndicator::running:
        return QStringLiteral("color: palette(highlight); font-weight: bold;");
    case PhaseIndicator::done:
        return QStringLiteral("color: #2e9d57; font-weight: bold;");
    case PhaseIndicator::failed:
        return QStringLiteral("color: #d64541; font-weight: bold;");
    case PhaseIndicator::waiting:
    case PhaseIndicator::stopped:
        break;
    }
    return QStringLiteral("color: palette(placeholder-text);");
}

} // namespace

PhaseList::PhaseList(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("phaseList"));
    setAccessibleName(QStringLiteral("Phase Status"));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(2);
    for (std::size_t i = 0; i < phaseCount; ++i) {
        const auto& phase = timeOfDayPhases[i];
        Row& row = rows_[i];
        row.row = new QWidget(this);
        row.row->setObjectName(QStringLiteral("phase_") + toQString(std::string(phase.id)));
        auto* line = new QHBoxLayout(row.row);
        line->setContentsMargins(0, 0, 0, 0);
        line->setSpacing(8);
        row.thumbnail = new QLabel(row.row);
        row.thumbnail->setFixedSize(thumbnailSize);
        auto* name = new QLabel(toQString(std::string(phase.label)), row.row);
        name->setMinimumWidth(92);
        auto* sun = new QLabel(QStringLiteral("%1°").arg(phase.altitude), row.row);
        sun->setToolTip(
            QStringLiteral("Sun altitude %1°, azimuth %2°").arg(phase.altitude).arg(phase.azimuth));
        sun->setStyleSheet(QStringLiteral("color: palette(placeholder-text);"));
        sun->setMinimumWidth(38);
        sun->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
        row.status = new QLabel(row.row);
        row.status->setObjectName(QStringLiteral("status_") + toQString(std::string(phase.id)));
        row.status->setMinimumWidth(84);
        row.status->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
        line->addWidget(row.thumbnail);
        line->addWidget(name, 1);
        line->addWidget(sun);
        line->addWidget(row.status);
        column->addWidget(row.row);
        setIndicator(i, PhaseIndicator::waiting);
        showThumbnail(i);
    }
    column->addStretch(1);
}

void PhaseList::setIndicator(std::size_t phase, PhaseIndicator indicator) {
    Row& row = rows_[phase];
    row.indicator = indicator;
    const QString text = toQString(std::string(generation::statusText(indicator)));
    row.status->setText(text);
    row.status->setStyleSheet(statusStyle(indicator));
    row.row->setAccessibleName(toQString(std::string(timeOfDayPhases[phase].label)) +
                               QStringLiteral(": ") + text);
}

void PhaseList::setPicture(std::size_t phase, const QImage& picture) {
    rows_[phase].picture = picture;
    showThumbnail(phase);
}

void PhaseList::clearPictures() {
    for (std::size_t i = 0; i < phaseCount; ++i)
        setPicture(i, {});
}

QString PhaseList::statusText(std::size_t phase) const {
    return rows_[phase].status->text();
}

void PhaseList::showThumbnail(std::size_t phase) {
    rows_[phase].thumbnail->setPixmap(
        thumbnail(rows_[phase].picture, phaseColour(phase), devicePixelRatioF()));
}

} // namespace lumivesper::ui
