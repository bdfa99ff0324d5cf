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
    // A shadowed line with a knob at the top.
    painter.fillRect(QRectF(centre - 1.5, 0, 3, height()), QColor(0, 0, 0, 90));
    painter.fillRect(QRectF(centre - 1, 0, 2, height()), accent);
    QPainterPath knob;
    knob.moveTo(0, 0);
    knob.lineTo(width, 0);
    knob.lineTo(centre, 8);
    knob.closeSubpath();
    painter.fillPath(knob, accent);
}

} // namespace lumivesper::ui
