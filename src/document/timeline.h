#pragma once

#include "document/app_state.h"
#include "document/wallpaper_image.h"

#include <optional>
#include <vector>

namespace lumivesper::document {

// The image a timeline hour shows: by position in the list (0 h the first, 24 h the last), not by
// the sun. None for an empty list.
std::optional<WallpaperImage> timelineImage(double hour, const std::vector<WallpaperImage>& images);

struct ClosestFrame {
    WallpaperImage image;
    double altitudeDifference = 0; // degrees
    double azimuthDifference = 0;  // degrees, the shorter way round
};

// The image nearest to a sun position in plain degrees, among images with both angles; the first
// of equals wins.
std::optional<ClosestFrame> closestFrame(const std::vector<WallpaperImage>& images,
                                         double sunAltitude, double sunAzimuth);

struct SunValues {
    double altitude = 0;
    double azimuth = 0;
    double timeOfDay = 0;
};

// Sun values for tween `index` (1-based) of `count` between two key images: altitude linearly,
// azimuth the shorter way round, time always forward (across midnight too).
SunValues interpolatedSunValues(const WallpaperImage& from, const WallpaperImage& to, int index,
                                int count);

// What a preset button does to the selected image (one "Edit Image" step; nothing without one).
void applyPreset(AppState& state, double altitude, double azimuth);
void applyAppearance(AppState& state, bool isLight);

} // namespace lumivesper::document
