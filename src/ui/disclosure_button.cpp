#include "ui/disclosure_button.h"

namespace lumivesper::ui {

DisclosureButton::DisclosureButton(const QString& text, QWidget* parent) : QToolButton(parent) {
    setText(text);
    setAccessibleName(text);
    setCheckable(true);
    setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    setArrowType(Qt::RightArrow);
    setAutoRaise(true);
}

void DisclosureButton::nextCheckState() {
    QToolButton::nextCheckState();
    pointArrow();
}

void DisclosureButton::checkStateSet() {
    QToolButton::checkStateSet();
    pointArrow();
}

void DisclosureButton::pointArrow() {
    setArrowType(isChecked() ? Qt::DownArrow : Qt::RightArrow);
}

} // namespace lumivesper::ui
