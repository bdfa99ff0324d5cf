#pragma once

#include "sun/time_zone.h"

#include <chrono>
#include <optional>

namespace lumivesper::sun {

struct SolarPosition {
    double altitude = 0; // degrees above the horizon, geometric (no refraction)
    double azimuth = 0;  // degrees clockwise from north, 0 up to under 360
};

// The intermediate values of one evaluation, for checks against published tables.
struct SolarTerms {
    double equationOfTimeMinutes = 0;
    double declinationDegrees = 0;
};

// The NOAA solar calculator (after Meeus) for an instant seen on a clock in `zone`, at a place
// (latitude positive north, longitude positive east). Pure; callable from any thread. No position
// for a latitude or longitude that is not a finite number (typed text can be "inf" or "nan").
std::optional<SolarPosition> solarPosition(std::chrono::system_clock::time_point date,
                                           const TimeZone& zone, double latitude, double longitude,
                                           SolarTerms* terms = nullptr);

} // namespace lumivesper::sun
