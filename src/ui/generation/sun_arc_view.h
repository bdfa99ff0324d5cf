#pragma once

#include "generation/magic_generate_progress.h"

#include <QImage>
#include <QVariantAnimation>
#include <QWidget>
#include <array>

namespace lumivesper::ui {

// The day drawn as the sun's path: one dot per phase of the generated day, placed in order from
// night to dusk and raised by the sun's altitude over a horizon line. A dot shows whether its
// phase waits, is being made (pulsing), is done (its picture in the dot), failed or was stopped.
class SunArcView final : public QWidget {
    Q_OBJECT

public:
    static constexpr std::size_t phaseCount = generation::timeOfDayPhases.size();

    explicit SunArcView(QWidget* parent = nullptr);

    void setIndicators(const std::array<generation::PhaseIndicator, phaseCount>& indicators);
    void setPicture(std::size_t phase, const QImage& picture);
    void clearPictures();

    generation::PhaseIndicator indicator(std::size_t phase) const { return indicators_[phase]; }
    // The centre of a phase's dot, in widget coordinates.
    QPointF dotCentre(std::size_t phase) const;

    QSize sizeHint() const override { return {760, 150}; }
    QSize minimumSizeHint() const override { return {520, 130}; }

protected:
    void paintEvent(QPaintEvent* event) override;
    bool event(QEvent* event) override;

private:
    QRectF plotArea() const;
    void paintDot(QPainter& painter, std::size_t phase) const;
    void updateAccessibleDescription();

    std::array<generation::PhaseIndicator, phaseCount> indicators_{};
    std::array<QImage, phaseCount> pictures_;
    QVariantAnimation pulse_;
};

// The colour of the sky at a phase, for the dots, the arc and the phase list.
QColor phaseColour(std::size_t phase);

} // namespace lumivesper::ui
