#pragma once

#include <QSlider>

namespace lumivesper::ui {

// A horizontal slider over a range of doubles that shows only its knob, no track. A movement by
// the user snaps the value to the step (halves away from zero) and reports it; values set from
// outside report nothing, and one outside the range pins the knob at that end.
class TracklessSlider final : public QSlider {
    Q_OBJECT

public:
    TracklessSlider(double minimum, double maximum, double step, QWidget* parent = nullptr);

    double doubleValue() const;
    // Sets the range and the value from outside, each only where it differs.
    void setDoubleRange(double minimum, double maximum);
    void setDoubleValue(double value);

signals:
    // The user moved the knob: the snapped value.
    void valueEdited(double value);

protected:
    void paintEvent(QPaintEvent* event) override;
    // A press beside the knob moves it there and starts a drag: with no track to page along,
    // paging would be a surprise.
    void mousePressEvent(QMouseEvent* event) override;

private:
    QRect knobRect() const;
    void userMoved(int position);
    int toPosition(double value) const;

    double step_;
};

} // namespace lumivesper::ui
