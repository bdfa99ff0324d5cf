#pragma once

#include "generation/magic_generate_progress.h"

#include <QImage>
#include <QWidget>
#include <array>

class QLabel;

namespace lumivesper::ui {

// The phases of the day as a column: each with a small picture once it has one, its name and
// where the sun stands, and its status.
class PhaseList final : public QWidget {
    Q_OBJECT

public:
    static constexpr std::size_t phaseCount = generation::timeOfDayPhases.size();

    explicit PhaseList(QWidget* parent = nullptr);

    void setIndicator(std::size_t phase, generation::PhaseIndicator indicator);
    void setPicture(std::size_t phase, const QImage& picture);
    void clearPictures();

    QString statusText(std::size_t phase) const;

private:
    struct Row {
        QWidget* row = nullptr;
        QLabel* thumbnail = nullptr;
        QLabel* status = nullptr;
        generation::PhaseIndicator indicator = generation::PhaseIndicator::waiting;
        QImage picture;
    };
    void showThumbnail(std::size_t phase);

    std::array<Row, phaseCount> rows_;
};

} // namespace lumivesper::ui
