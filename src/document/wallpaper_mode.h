#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace lumivesper::document {

// How the desktop chooses among the images of an exported file.
enum class WallpaperMode {
    time,       // by the sun's position: each image has an altitude and azimuth
    appearance, // by the light or dark system appearance: each image has isLight
};

std::string_view rawValue(WallpaperMode mode);
std::optional<WallpaperMode> wallpaperModeFromRawValue(std::string_view raw);

} // namespace lumivesper::document
