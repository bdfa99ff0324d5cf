#include "document/wallpaper_mode.h"

namespace lumivesper::document {

std::string_view rawValue(WallpaperMode mode) {
    return mode == WallpaperMode::time ? "time" : "appearance";
}

std::optional<WallpaperMode> wallpaperModeFromRawValue(std::string_view raw) {
    if (raw == "time")
        return WallpaperMode::time;
    if (raw == "appearance")
        return WallpaperMode::appearance;
    return std::nullopt;
}

} // namespace lumivesper::document
