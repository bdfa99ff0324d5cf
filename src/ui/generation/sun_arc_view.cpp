#include "ui/generation/sun_arc_view.h"

#include "ui/qt_text.h"

#include <QHelpEvent>
#include <QPainter>
#include <QPainterPath>
#include <QToolTip>
#include <algorithm>
#include <cmath>

namespace lumivesper::ui {

using generation::PhaseIndicator;
using generation::timeOfDayPhases;

namespace {

constexpr double lowestAltitude = -35;
constexpr double highestAltitude = 65;
constexpr double dotRadius = 11;
constexpr int labelHeight = 18;

const QColor failedColour(0xd6, 0x45, 0x41);

QString phaseLabel(std::size_t phase) {
    return toQString(std::string(timeOfDayPhases[phase].label));
}

// Catmull-Rom through the points, as cubic Béziers: a smooth path that passes every dot.
QPainterPath smoothPath(const std::vector<QPointF>& points) {
    QPainterPath path(points.front());
    for (std::size_t i = 0; i + 1 < points.size(); ++i) {
        const QPointF p0 = points[i == 0 ? 0 : i - 1];
        const QPointF p1 = points[i];
        const QPointF p2 = points[i + 1];
        const QPointF p3 = points[std::min(i + 2, points.size() - 1)];
        path.cubicTo(p1 + (p2 - p0) / 6.0, p2 - (p3 - p1) / 6.0, p2);
    }
    return path;
}

} // namespace

QColor phaseColour(std::size_t phase) {
    static const std::array<QColor, SunArcView::phaseCount> colours{{
        QColor(0x1f, 0x2a, 0x5a), // night
        QColor(0x2c, 0x3e, 0x7a), // astronomical
        QColor(0x3d, 0x5a, 0x9e), // nautical
        QColor(0x7b, 0x6f, 0xb0), // civil
        QColor(0xf2, 0xa5, 0x41), // golden morning
        QColor(0xf4, 0xc0, 0x5e), // morning
        QColor(0x4f, 0xaa, 0xe3), // midday
        QColor(0x6d, 0xb8, 0xe4), // afternoon
        QColor(0xf0, 0x8a, 0x3c), // golden evening
        QColor(0xe0, 0x60, 0x3a), // sunset
        QColor(0x6c, 0x4f, 0x8f), // dusk
    }};
    return colours[std::min(phase, colours.size() - 1)];
}

SunArcView::SunArcView(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("sunArc"));
    setAccessibleName(QStringLiteral("Phases of the day"));
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setMinimumHeight(minimumSizeHint().height());
    pulse_.setStartValue(0.0);
    pulse_.setEndValue(1.0);
    pulse_.setDuration(1400);
    pulse_.setLoopCount(-1);
    connect(&pulse_, &QVariantAnimation::valueChanged, this, [this] { update(); });
    indicators_.fill(PhaseIndicator::waiting);
    updateAccessibleDescription();
}

void SunArcView::setIndicators(const std::array<PhaseIndicator, phaseCount>& indicators) {
    if (indicators == indicators_)
        return;
    indicators_ = indicators;
    const bool running = std::find(indicators_.begin(), indicators_.end(),
                                   PhaseIndicator::running) != indicators_.end();
    if (running && pulse_.state() != QAbstractAnimation::Running)
        pulse_.start();
    else if (!running)
        pulse_.stop();
    updateAccessibleDescription();
    update();
}

void SunArcView::setPicture(std::size_t phase, const QImage& picture) {
    if (phase >= phaseCount)
        return;
    // Cropped to a square once here, so painting only scales.
    const int side = std::min(picture.width(), picture.height());
    pictures_[phase] = picture.isNull() ? QImage()
                                        : picture.copy((picture.width() - side) / 2,
                                                       (picture.height() - side) / 2, side, side);
    update();
}

void SunArcView::clearPictures() {
    pictures_.fill(QImage());
    update();
}

QRectF SunArcView::plotArea() const {
    const double margin = 40;
    return QRectF(margin, dotRadius + 8, width() - 2 * margin,
                  height() - labelHeight - 2 * dotRadius - 14);
}

QPointF SunArcView::dotCentre(std::size_t phase) const {
    const QRectF area = plotArea();
    const double x = area.left() + area.width() * static_cast<double>(phase) /
                                       static_cast<double>(phaseCount - 1);
    const double altitude = timeOfDayPhases[phase].altitude;
    const double fraction = (altitude - lowestAltitude) / (highestAltitude - lowestAltitude);
    return {x, area.bottom() - area.height() * fraction};
}

void SunArcView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF area = plotArea();
    const double horizonY =
        area.bottom() - area.height() * (0 - lowestAltitude) / (highestAltitude - lowestAltitude);

    // Night below the horizon, a faint glow of day above it.
    QLinearGradient sky(0, area.top() - dotRadius, 0, horizonY);
    sky.setColorAt(0, QColor(0x4f, 0xaa, 0xe3, 28));
    sky.setColorAt(1, QColor(0xf4, 0xc0, 0x5e, 36));
    painter.fillRect(QRectF(0, 0, width(), horizonY), sky);
    QLinearGradient ground(0, horizonY, 0, height() - labelHeight);
    ground.setColorAt(0, QColor(0x2c, 0x3e, 0x7a, 46));
    ground.setColorAt(1, QColor(0x1f, 0x2a, 0x5a, 12));
    painter.fillRect(QRectF(0, horizonY, width(), height() - labelHeight - horizonY), ground);

    QPen horizonPen(palette().color(QPalette::Mid), 1, Qt::DashLine);
    painter.setPen(horizonPen);
    painter.drawLine(QPointF(8, horizonY), QPointF(width() - 8, horizonY));
    QFont small = font();
    small.setPointSizeF(small.pointSizeF() * 0.8);
    painter.setFont(small);
    painter.setPen(palette().color(QPalette::PlaceholderText));
    // At the left end, where the night's dots lie below the line and nothing stands above it.
    painter.drawText(QRectF(8, horizonY - 16, 120, 14), Qt::AlignLeft | Qt::AlignBottom,
                     QStringLiteral("horizon"));

    // The sun's path, coloured by the sky along the day.
    std::vector<QPointF> points;
    for (std::size_t i = 0; i < phaseCount; ++i)
        points.push_back(dotCentre(i));
    QLinearGradient pathColour(area.left(), 0, area.right(), 0);
    for (std::size_t i = 0; i < phaseCount; ++i)
        pathColour.setColorAt(static_cast<double>(i) / static_cast<double>(phaseCount - 1),
                              phaseColour(i));
    painter.setPen(QPen(QBrush(pathColour), 3, Qt::SolidLine, Qt::RoundCap));
    painter.setBrush(Qt::NoBrush);
    painter.drawPath(smoothPath(points));

    for (std::size_t i = 0; i < phaseCount; ++i)
        paintDot(painter, i);

    // Labels in a row under the plot, each centred under its dot.
    const double slot = area.width() / static_cast<double>(phaseCount - 1);
    for (std::size_t i = 0; i < phaseCount; ++i) {
        QFont labelFont = small;
        QColor colour = palette().color(QPalette::PlaceholderText);
        if (indicators_[i] == PhaseIndicator::running) {
            labelFont.setBold(true);
            colour = palette().color(QPalette::Highlight);
        } else if (indicators_[i] == PhaseIndicator::failed) {
            labelFont.setBold(true);
            colour = failedColour;
        } else if (indicators_[i] == PhaseIndicator::done) {
            colour = palette().color(QPalette::WindowText);
        }
        painter.setFont(labelFont);
        painter.setPen(colour);
        const double x = dotCentre(i).x();
        painter.drawText(QRectF(x - slot / 2 - 6, height() - labelHeight, slot + 12, labelHeight),
                         Qt::AlignHCenter | Qt::AlignVCenter, phaseLabel(i));
    }
}

void SunArcView::paintDot(QPainter& painter, std::size_t phase) const {
    const QPointF centre = dotCentre(phase);
    const QRectF disc(centre - QPointF(dotRadius, dotRadius), QSizeF(2 * dotRadius, 2 * dotRadius));
    const QColor base = palette().color(QPalette::Base);
    painter.save();
    switch (indicators_[phase]) {
    case PhaseIndicator::waiting:
        painter.setPen(QPen(palette().color(QPalette::Mid), 1.5));
        painter.setBrush(base);
        painter.drawEllipse(disc.adjusted(2, 2, -2, -2));
        break;
    case PhaseIndicator::running: {
        const double wave = pulse_.currentValue().toDouble();
        QColor halo = palette().color(QPalette::Highlight);
        halo.setAlphaF(0.45 * (1 - wave));
        painter.setPen(Qt::NoPen);
        painter.setBrush(halo);
        const double grow = dotRadius + 9 * wave;
        painter.drawEllipse(centre, grow, grow);
        painter.setBrush(base);
        painter.setPen(QPen(palette().color(QPalette::Highlight), 3));
        painter.drawEllipse(disc.adjusted(1, 1, -1, -1));
        painter.setPen(Qt::NoPen);
        painter.setBrush(phaseColour(phase));
        painter.drawEllipse(centre, 4.5, 4.5);
        break;
    }
    case PhaseIndicator::done: {
        if (pictures_[phase].isNull()) {
            painter.setPen(Qt::NoPen);
            painter.setBrush(phaseColour(phase));
            painter.drawEllipse(disc);
        } else {
            QPainterPath clip;
            clip.addEllipse(disc);
            painter.setClipPath(clip);
            painter.drawImage(disc, pictures_[phase]);
            painter.setClipping(false);
        }
        painter.setPen(QPen(Qt::white, 2));
        painter.setBrush(Qt::NoBrush);
        painter.drawEllipse(disc);
        painter.setPen(QPen(phaseColour(phase), 1.5));
        painter.drawEllipse(disc.adjusted(-1.5, -1.5, 1.5, 1.5));
        break;
    }
    case PhaseIndicator::failed:
    case PhaseIndicator::stopped: {
        const bool failed = indicators_[phase] == PhaseIndicator::failed;
        painter.setPen(QPen(Qt::white, 2));
        painter.setBrush(failed ? failedColour : palette().color(QPalette::Mid));
        painter.drawEllipse(disc);
        QFont mark = font();
        mark.setBold(true);
        painter.setFont(mark);
        painter.setPen(Qt::white);
        painter.drawText(disc, Qt::AlignCenter, failed ? QStringLiteral("!") : QStringLiteral("–"));
        break;
    }
    }
    painter.restore();
}

bool SunArcView::event(QEvent* event) {
    if (event->type() != QEvent::ToolTip)
        return QWidget::event(event);
    const auto* help = static_cast<QHelpEvent*>(event);
    for (std::size_t i = 0; i < phaseCount; ++i) {
        if (QLineF(help->pos(), dotCentre(i)).length() > dotRadius + 4)
            continue;
        const auto& phase = timeOfDayPhases[i];
        QToolTip::showText(
            help->globalPos(),
            QStringLiteral("%1 — %2\nSun %3°, azimuth %4°")
                .arg(phaseLabel(i), toQString(std::string(generation::statusText(indicators_[i]))))
                .arg(phase.altitude)
                .arg(phase.azimuth),
            this);
        return true;
    }
    QToolTip::hideText();
    event->ignore();
    return true;
}

void SunArcView::updateAccessibleDescription() {
    int done = 0;
    for (const auto indicator : indicators_)
        done += indicator == PhaseIndicator::done ? 1 : 0;
    setAccessibleDescription(QStringLiteral("%1 of %2 phases done").arg(done).arg(phaseCount));
}

} // namespace lumivesper::ui
