#include "ui/inspector/trackless_slider.h"

#include "shell/inspector_model.h"

#include <QMouseEvent>
#include <QPainter>
#include <QSignalBlocker>
#include <QStyleOptionSlider>
#include <algorithm>
#include <cmath>

namespace lumivesper::ui {

namespace {

// The control counts in thousandths, finer than any step it is given, so that the step rule
// and not the control decides where a value lands.
constexpr double positionsPerUnit = 1000;

} // namespace

TracklessSlider::TracklessSlider(double minimum, double maximum, double step, QWidget* parent)
    : QSlider(Qt::Horizontal, parent), step_(step) {
    setTickPosition(QSlider::NoTicks);
    setTracking(true); // continuous
    setDoubleRange(minimum, maximum);
    const int stepPositions = step > 0 ? toPosition(step) : 1;
    setSingleStep(stepPositions);
    setPageStep(stepPositions * 100);
    connect(this, &QSlider::valueChanged, this, &TracklessSlider::userMoved);
}

double TracklessSlider::doubleValue() const {
    return value() / positionsPerUnit;
}

int TracklessSlider::toPosition(double value) const {
    return static_cast<int>(std::lround(value * positionsPerUnit));
}

void TracklessSlider::setDoubleRange(double minimum, double maximum) {
    const QSignalBlocker quiet(this);
    if (toPosition(minimum) != QSlider::minimum())
        setMinimum(toPosition(minimum));
    if (toPosition(maximum) != QSlider::maximum())
        setMaximum(toPosition(maximum));
}

void TracklessSlider::setDoubleValue(double value) {
    if (!std::isfinite(value))
        return;
    // Outside the range the control pins the knob at its end; the label beside it tells the truth.
    const double pinned =
        std::clamp(value, minimum() / positionsPerUnit, maximum() / positionsPerUnit);
    const QSignalBlocker quiet(this);
    if (toPosition(pinned) != QSlider::value())
        setValue(toPosition(pinned));
}

void TracklessSlider::userMoved(int position) {
    const double snapped = shell::steppedSliderValue(position / positionsPerUnit, step_);
    {
        const QSignalBlocker quiet(this);
        setValue(toPosition(snapped));
    }
    emit valueEdited(snapped);
}

QRect TracklessSlider::knobRect() const {
    QStyleOptionSlider option;
    initStyleOption(&option);
    return style()->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, this);
}

void TracklessSlider::mousePressEvent(QMouseEvent* event) {
    const QRect knob = knobRect();
    if (event->button() == Qt::LeftButton && !knob.contains(event->position().toPoint())) {
        const int span = width() - knob.width();
        const int x = event->position().toPoint().x() - knob.width() / 2;
        setValue(QStyle::sliderValueFromPosition(minimum(), maximum(), x, span));
    }
    QSlider::mousePressEvent(event); // the knob is under the pointer now: this starts the drag
}

void TracklessSlider::paintEvent(QPaintEvent*) {
    // Only a round knob where the style puts its handle: the track is left out on purpose.
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRect handle = knobRect();
    const double diameter = std::min({handle.width(), handle.height(), 18}) - 2.0;
    const QRectF knob(handle.center().x() - diameter / 2 + 0.5,
                      handle.center().y() - diameter / 2 + 0.5, diameter, diameter);
    const QPalette& colours = palette();
    if (hasFocus()) {
        QColor ring = colours.color(QPalette::Highlight);
        ring.setAlphaF(0.5f);
        painter.setPen(QPen(ring, 3));
        painter.setBrush(Qt::NoBrush);
        painter.drawEllipse(knob.adjusted(-1.5, -1.5, 1.5, 1.5));
    }
    painter.setPen(QPen(colours.color(QPalette::Shadow), 0.8));
    QColor face = isSliderDown() ? colours.color(QPalette::Midlight) : QColor(Qt::white);
    if (!isEnabled())
        face = colours.color(QPalette::Disabled, QPalette::Button);
    painter.setBrush(face);
    painter.drawEllipse(knob);
}

} // namespace lumivesper::ui
