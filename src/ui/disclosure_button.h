#pragma once

#include <QToolButton>

namespace lumivesper::ui {

// The flat "Advanced" switch of a sheet: a checkable button whose arrow points right while the
// section below it is closed and down while it is open, however the state was set.
class DisclosureButton final : public QToolButton {
    Q_OBJECT

public:
    DisclosureButton(const QString& text, QWidget* parent);

protected:
    // A click changes the state through the one, setChecked through the other.
    void nextCheckState() override;
    void checkStateSet() override;

private:
    void pointArrow();
};

} // namespace lumivesper::ui
