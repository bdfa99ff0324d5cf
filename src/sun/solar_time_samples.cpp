#include "sun/solar_time_samples.h"

#include "sun/solar_position.h"

#include <chrono>
#include <cmath>
#include <limits>
#include <vector>

namespace lumivesper::sun {

namespace {

std::vector<SolarTimeSample> buildReferenceDay() {
    std::vector<SolarTimeSample> samples;
    samples.reserve(288);
    for (int minute = 0; minute <= 1435; minute += 5) {
        const auto position = referenceSunPosition(minute / 60.0);
        samples.push_back({minute / 60.0, position.altitude, position.azimuth});
    }
    return samples;
}

} // namespace

SolarPosition referenceSunPosition(double hour) {
    using namespace std::chrono;
    const sys_seconds equinox = sys_days{year{2024} / March / 20};
    const auto offset = round<system_clock::duration>(duration<double>(hour * 3600.0));
    return *solarPosition(equinox + offset, TimeZone::utc(), 40.0, 0.0); // a finite place
}

std::span<const SolarTimeSample> solarTimeSamples() {
    static const std::vector<SolarTimeSample> samples = buildReferenceDay(); // thread-safe init
    return samples;
}

double sunPositionDistance(double altitude, double azimuth, double otherAltitude,
                           double otherAzimuth) {
    double dz = std::fmod(otherAzimuth - azimuth, 360.0);
    if (dz > 180.0)
        dz -= 360.0;
    else if (dz < -180.0)
        dz += 360.0;
    dz /= 180.0;
    const double da = (altitude - otherAltitude) / 90.0;
    return da * da + dz * dz;
}

double approximateSolarHour(double altitude, double azimuth) {
    double best = std::numeric_limits<double>::max();
    double result = 0;
    for (const auto& sample : solarTimeSamples()) {
        const double d = sunPositionDistance(altitude, azimuth, sample.altitude, sample.azimuth);
        if (d < best) {
            best = d;
            result = sample.hour;
        }
    }
    return result;
}

} // namespace lumivesper::sun
