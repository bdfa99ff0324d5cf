#include "ui/inspector/trackless_slider.h"

#include "shell/inspector_model.h"

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

void TracklessSlider::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    QStyleOptionSlider option;
    initStyleOption(&option);
    // Only the knob (and the focus frame): the track is left out on purpose.
    option.subControls = QStyle::SC_SliderHandle;
    style()->drawComplexControl(QStyle::CC_Slider, &option, &painter, this);
}

} // namespace lumivesper::ui
