#include "sun/hours.h"

#include "sun/solar_time_samples.h"

#include <cmath>

namespace lumivesper::sun {

double effectiveHour(std::optional<double> timeOfDay, std::optional<double> altitude,
                     std::optional<double> azimuth) {
    if (timeOfDay) {
        double hour = std::fmod(*timeOfDay, 24.0);
        return hour < 0 ? hour + 24.0 : hour;
    }
    if (altitude && azimuth)
        return approximateSolarHour(*altitude, *azimuth);
    return 0.0;
}

} // namespace lumivesper::sun
