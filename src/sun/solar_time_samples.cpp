#include "sun/solar_time_samples.h"

#include "sun/solar_position.h"

#include <chrono>
#include <cmath>
#include <limits>
#include <vector>

namespace lumivesper::sun {

namespace {

std::vector<SolarTimeSample> buildReferenceDay() {
    using namespace std::chrono;
    const TimeZone zone = TimeZone::utc();
    const sys_seconds equinox = sys_days{year{2024} / March / 20};
    std::vector<SolarTimeSample> samples;
    samples.reserve(288);
    for (int minute = 0; minute <= 1435; minute += 5) {
        const auto position = *solarPosition(equinox + minutes(minute), zone, 40.0, 0.0);
        samples.push_back({minute / 60.0, position.altitude, position.azimuth});
    }
    return samples;
}

} // namespace

std::span<const SolarTimeSample> solarTimeSamples() {
    static const std::vector<SolarTimeSample> samples = buildReferenceDay(); // thread-safe init
    return samples;
}

double approximateSolarHour(double altitude, double azimuth) {
    double best = std::numeric_limits<double>::max();
    double result = 0;
    for (const auto& sample : solarTimeSamples()) {
        double dz = std::fmod(sample.azimuth - azimuth, 360.0);
        if (dz > 180.0)
            dz -= 360.0;
        else if (dz < -180.0)
            dz += 360.0;
        dz /= 180.0;
        const double da = (altitude - sample.altitude) / 90.0;
        const double d = da * da + dz * dz;
        if (d < best) {
            best = d;
            result = sample.hour;
        }
    }
    return result;
}

} // namespace lumivesper::sun
