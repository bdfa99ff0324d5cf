#pragma once

#include <QString>

class QFrame;
class QLabel;
class QWidget;

// The inspector's text styles, one place for all its sections.
namespace lumivesper::ui::inspector_text {

// A section heading ("Mode", "Presets", ...): the headline font.
QLabel* heading(const QString& text, QWidget* parent);
// Small explanatory text in the palette's secondary colour.
QLabel* caption(const QString& text, QWidget* parent);
// A value beside a label, in the secondary colour.
QLabel* secondary(const QString& text, QWidget* parent);
// The line between two sections.
QFrame* divider(QWidget* parent);

} // namespace lumivesper::ui::inspector_text
