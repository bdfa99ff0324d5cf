#pragma once

#include <QWidget>

namespace lumivesper::ui {

// The line at the previewed hour over the strip of frames; 10 wide, so it is easy to see and
// the strip under it takes every press.
class Playhead final : public QWidget {
    Q_OBJECT

public:
    static constexpr int width = 10;

    explicit Playhead(QWidget* parent = nullptr);
    // Centres the playhead on `x` of its parent, over the whole height.
    void placeAt(double x);

protected:
    void paintEvent(QPaintEvent* event) override;
};

} // namespace lumivesper::ui
