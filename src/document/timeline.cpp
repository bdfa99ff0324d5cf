#include "document/timeline.h"

#include "document/image_hours.h"

#include <algorithm>
#include <cmath>

namespace lumivesper::document {

std::optional<WallpaperImage> timelineImage(double hour,
                                            const std::vector<WallpaperImage>& images) {
    const auto count = static_cast<long>(images.size());
    if (count == 0)
        return std::nullopt;
    const double fraction = hour <= 0 ? 0.0 : std::min(hour, 24.0) / 24.0;
    const long index =
        std::clamp(std::lround(fraction * static_cast<double>(count - 1)), 0L, count - 1);
    return images[static_cast<std::size_t>(index)];
}

std::optional<ClosestFrame> closestFrame(const std::vector<WallpaperImage>& images,
                                         double sunAltitude, double sunAzimuth) {
    std::optional<ClosestFrame> best;
    double bestDistance = 0;
    for (const auto& image : images) {
        if (!image.altitude || !image.azimuth)
            continue;
        const double dAlt = std::fabs(*image.altitude - sunAltitude);
        double dAz = std::fabs(*image.azimuth - sunAzimuth);
        if (360.0 - dAz < dAz)
            dAz = 360.0 - dAz;
        const double distance = dAlt * dAlt + dAz * dAz;
        if (!best || distance < bestDistance) {
            best = ClosestFrame{image, dAlt, dAz};
            bestDistance = distance;
        }
    }
    return best;
}

SunValues interpolatedSunValues(const WallpaperImage& from, const WallpaperImage& to, int index,
                                int count) {
    const double f = static_cast<double>(index) / static_cast<double>(count + 1);
    const double fromAltitude = from.altitude.value_or(0.0);
    const double fromAzimuth = from.azimuth.value_or(0.0);

    SunValues values;
    values.altitude = fromAltitude + f * (to.altitude.value_or(0.0) - fromAltitude);

    double d = std::fmod(to.azimuth.value_or(0.0) - fromAzimuth, 360.0);
    if (d > 180.0)
        d -= 360.0;
    else if (d < -180.0)
        d += 360.0;
    values.azimuth = std::fmod(fromAzimuth + f * d, 360.0);
    if (values.azimuth < 0)
        values.azimuth += 360.0;

    const double h0 = effectiveHour(from);
    double span = effectiveHour(to) - h0;
    if (span < 0)
        span += 24.0;
    values.timeOfDay = std::fmod(h0 + span * f, 24.0);
    if (values.timeOfDay < 0)
        values.timeOfDay += 24.0;
    return values;
}

void applyPreset(AppState& state, double altitude, double azimuth) {
    auto image = state.selectedImage();
    if (!image)
        return;
    image->altitude = altitude;
    image->azimuth = azimuth;
    state.updateImage(*image);
}

void applyAppearance(AppState& state, bool isLight) {
    auto image = state.selectedImage();
    if (!image)
        return;
    image->isLight = isLight;
    state.updateImage(*image);
}

} // namespace lumivesper::document
