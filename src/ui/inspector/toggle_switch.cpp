#include "ui/inspector/toggle_switch.h"

#include <QPainter>
#include <QStyleOptionFocusRect>

namespace lumivesper::ui {

namespace {

constexpr int trackWidth = 34;
constexpr int trackHeight = 18;
constexpr int labelGap = 8;

} // namespace

ToggleSwitch::ToggleSwitch(const QString& text, QWidget* parent) : QCheckBox(text, parent) {
    setAccessibleName(text);
    setCursor(Qt::PointingHandCursor);
}

QSize ToggleSwitch::sizeHint() const {
    const QFontMetrics metrics = fontMetrics();
    const int textWidth = text().isEmpty() ? 0 : metrics.horizontalAdvance(text()) + labelGap;
    return {textWidth + trackWidth + 4, std::max(metrics.height(), trackHeight) + 6};
}

QRect ToggleSwitch::trackRect() const {
    const int textWidth = text().isEmpty() ? 0 : fontMetrics().horizontalAdvance(text()) + labelGap;
    return {textWidth + 2, (height() - trackHeight) / 2, trackWidth, trackHeight};
}

bool ToggleSwitch::hitButton(const QPoint& position) const {
    return rect().contains(position);
}

void ToggleSwitch::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QPalette& colours = palette();

    const QRect textArea(0, 0, trackRect().left() - labelGap + 2, height());
    painter.setPen(
        colours.color(isEnabled() ? QPalette::Active : QPalette::Disabled, QPalette::WindowText));
    painter.drawText(textArea, Qt::AlignLeft | Qt::AlignVCenter, text());

    const QRectF track = QRectF(trackRect()).adjusted(0.5, 0.5, -0.5, -0.5);
    QColor fill = isChecked() ? colours.color(QPalette::Highlight) : colours.color(QPalette::Mid);
    if (!isEnabled())
        fill.setAlphaF(0.4f);
    painter.setPen(Qt::NoPen);
    painter.setBrush(fill);
    painter.drawRoundedRect(track, track.height() / 2, track.height() / 2);

    const double knobDiameter = track.height() - 4;
    const double knobX = isChecked() ? track.right() - 2 - knobDiameter : track.left() + 2;
    painter.setBrush(QColor(Qt::white)); // a white knob reads on light and dark palettes alike
    painter.setPen(QPen(colours.color(QPalette::Shadow), 0.5));
    painter.drawEllipse(QRectF(knobX, track.top() + 2, knobDiameter, knobDiameter));

    if (hasFocus()) {
        QStyleOptionFocusRect focus;
        focus.initFrom(this);
        focus.rect = trackRect().adjusted(-2, -2, 2, 2);
        style()->drawPrimitive(QStyle::PE_FrameFocusRect, &focus, &painter, this);
    }
}

} // namespace lumivesper::ui
