#pragma once

#include <QCheckBox>

namespace lumivesper::ui {

// An on/off switch: its label, then a rounded track with a knob that sits right when on. It is a
// check box to the keyboard and to screen readers.
class ToggleSwitch final : public QCheckBox {
    Q_OBJECT

public:
    explicit ToggleSwitch(const QString& text, QWidget* parent = nullptr);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;
    bool hitButton(const QPoint& position) const override;

private:
    QRect trackRect() const;
};

} // namespace lumivesper::ui
