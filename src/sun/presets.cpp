#include "sun/presets.h"

#include <array>

namespace lumivesper::sun {

namespace {

constexpr std::array timeRows{
    PresetButton{"Night", "night", false, "Sun well below horizon. Deep night lighting.", -30, 0,
                 std::nullopt},
    PresetButton{"Astronomical", "astronomical", false,
                 "Astronomical twilight (about -18° to -12° altitude).", -15, 90, std::nullopt},
    PresetButton{"Nautical", "nautical", false, "Nautical twilight (about -12° to -6° altitude).",
                 -9, 90, std::nullopt},
    PresetButton{"Civil", "civil", false, "Civil twilight (about -6° to -0.8° altitude).", -3, 90,
                 std::nullopt},
    PresetButton{"Golden AM", "golden_am", false, "Morning golden hour. Sun just above horizon.", 5,
                 90, std::nullopt},
    PresetButton{"Morning", "morning", false, "Morning light (sun rising, 10°–30° altitude).", 20,
                 120, std::nullopt},
    PresetButton{"Midday", "midday", false, "Midday sun high overhead.", 60, 180, std::nullopt},
    PresetButton{"Afternoon", "afternoon", false,
                 "Afternoon light (sun setting, 10°–30° altitude).", 20, 240, std::nullopt},
    PresetButton{"Golden PM", "golden_pm", false, "Evening golden hour. Sun just above horizon.", 5,
                 270, std::nullopt},
    // Sunset shares the golden-hour icon on purpose.
    PresetButton{"Sunset", "golden_pm", false, "Sun at the horizon. Warm light before dusk.", -0.8,
                 270, std::nullopt},
    PresetButton{"Dusk", "civil_dusk", false,
                 "Evening civil twilight after sunset (about -6° to -0.8° altitude).", -3, 270,
                 std::nullopt},
};

constexpr std::array appearanceRows{
    PresetButton{"Light", "sun.max", true, "Use the light appearance image.", 0, 0, true},
    PresetButton{"Dark", "moon.stars", true, "Use the dark appearance image.", 0, 0, false},
};

} // namespace

std::span<const PresetButton> timePresets() {
    return timeRows;
}

std::span<const PresetButton> appearancePresets() {
    return appearanceRows;
}

} // namespace lumivesper::sun
