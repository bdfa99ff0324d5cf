#include "ui/timeline/playhead.h"

#include <QPainter>
#include <QPainterPath>

#include <cmath>

namespace lumivesper::ui {

Playhead::Playhead(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setAccessibleName(QStringLiteral("Playhead"));
}

void Playhead::placeAt(double x) {
    const QWidget* strip = parentWidget();
    setGeometry(static_cast<int>(std::lround(x - width / 2.0)), 0, width,
                strip ? strip->height() : height());
    raise();
}

void Playhead::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor accent = palette().color(QPalette::Highlight);
    const double centre = width / 2.0;
    // A light line in a dark outline reads over bright and dark frames alike; the knob on top
    // carries the accent.
    painter.fillRect(QRectF(centre - 2.5, 0, 5, height()), QColor(0, 0, 0, 140));
    painter.fillRect(QRectF(centre - 1.5, 0, 3, height()), Qt::white);
    QPainterPath knob;
    knob.moveTo(0, 0);
    knob.lineTo(width, 0);
    knob.lineTo(width, 6);
    knob.lineTo(centre, 12);
    knob.lineTo(0, 6);
    knob.closeSubpath();
    painter.setPen(QPen(QColor(0, 0, 0, 140), 1));
    painter.setBrush(accent);
    painter.drawPath(knob);
}

} // namespace lumivesper::ui
