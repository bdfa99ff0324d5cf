#pragma once

#include <QIcon>
#include <string_view>

namespace lumivesper::sun {
struct PresetButton;
}

namespace lumivesper::ui {

// The icon of a preset button: one of the program's own sun-position drawings, whose lines take
// the colour of the button text of the palette at hand, or a themed icon for the appearance rows.
QIcon presetIcon(const sun::PresetButton& preset, const QPalette& palette);

// The drawing of one sun position ("midday", "civil_dusk", ...), its lines in `lineColour`; a
// null icon for a name the program has no drawing for.
QIcon sunPositionIcon(std::string_view name, const QColor& lineColour);

} // namespace lumivesper::ui
