#pragma once

#include <QWidget>

class QLabel;
class QToolButton;

namespace lumivesper::ui {

// Go to start, play or pause, go to end, and the hour at the playhead.
class Transport final : public QWidget {
    Q_OBJECT

public:
    explicit Transport(QWidget* parent = nullptr);

    void setState(bool playing, double hour);

    QToolButton* startButton() const { return start_; }
    QToolButton* playButton() const { return play_; }
    QToolButton* endButton() const { return end_; }
    QLabel* hourLabel() const { return hour_; }

signals:
    void goToStart();
    void togglePlaying();
    void goToEnd();

private:
    QToolButton* start_;
    QToolButton* play_;
    QToolButton* end_;
    QLabel* hour_;
};

} // namespace lumivesper::ui
