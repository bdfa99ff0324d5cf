#include "ui/inspector/inspector_text.h"

#include <QFrame>
#include <QLabel>

namespace lumivesper::ui::inspector_text {

QLabel* heading(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    QFont font = label->font();
    font.setBold(true);
    font.setPointSizeF(font.pointSizeF() * 1.1);
    label->setFont(font);
    label->setAccessibleName(text);
    return label;
}

QLabel* secondary(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setForegroundRole(QPalette::PlaceholderText); // follows light and dark palettes
    return label;
}

QLabel* caption(const QString& text, QWidget* parent) {
    QLabel* label = secondary(text, parent);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 0.88);
    label->setFont(font);
    label->setWordWrap(true);
    return label;
}

QFrame* divider(QWidget* parent) {
    auto* line = new QFrame(parent);
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Sunken);
    return line;
}

} // namespace lumivesper::ui::inspector_text
