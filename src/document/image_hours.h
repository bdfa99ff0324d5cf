#pragma once

#include "document/wallpaper_image.h"

namespace lumivesper::document {

// The hour of the day an image stands for: its timeOfDay when it has one, else the reference
// hour of its sun position, else 0.
double effectiveHour(const WallpaperImage& image);

} // namespace lumivesper::document
