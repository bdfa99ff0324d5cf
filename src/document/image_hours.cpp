#include "document/image_hours.h"

#include "sun/hours.h"

namespace lumivesper::document {

double effectiveHour(const WallpaperImage& image) {
    return sun::effectiveHour(image.timeOfDay, image.altitude, image.azimuth);
}

} // namespace lumivesper::document
