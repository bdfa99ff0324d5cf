#pragma once

#include <QString>

class QLabel;
class QWidget;

// The two kinds of text that sheets and dialogs set beside their controls.
namespace lumivesper::ui {

// Secondary text under a control: a little smaller, in the palette's secondary colour, wrapped.
QLabel* caption(const QString& text, QWidget* parent);
// The bold name of a group of controls.
QLabel* headline(const QString& text, QWidget* parent);

} // namespace lumivesper::ui
