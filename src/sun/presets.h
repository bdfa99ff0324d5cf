#pragma once

#include <optional>
#include <span>
#include <string_view>

namespace lumivesper::sun {

// One preset button: a sun position (time mode) or a light/dark role (appearance mode).
struct PresetButton {
    std::string_view title;
    std::optional<std::string_view> iconName;
    bool usesSystemIcon = false; // iconName names a themed system icon, not one of ours
    std::optional<std::string_view> helpText;
    double altitude = 0;
    double azimuth = 0;
    std::optional<bool> isLight; // set for the appearance rows
};

// The eleven time-of-day presets, in the order they are shown.
std::span<const PresetButton> timePresets();
// "Light" and "Dark".
std::span<const PresetButton> appearancePresets();

} // namespace lumivesper::sun
