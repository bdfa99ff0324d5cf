#pragma once

#include "sun/solar_position.h"

#include <span>

namespace lumivesper::sun {

// One moment of the reference day: the March equinox of 2024 at latitude 40°N, longitude 0, UTC.
struct SolarTimeSample {
    double hour = 0; // 0 up to under 24, in steps of 5 minutes
    double altitude = 0;
    double azimuth = 0;
};

// The sun at `hour` (0 up to under 24) of the reference day, at the reference place.
SolarPosition referenceSunPosition(double hour);

// The 288 samples of the reference day in ascending hour. Built once, on first use, under a
// thread-safe guard; immutable afterwards.
std::span<const SolarTimeSample> solarTimeSamples();

// How far apart two sun positions are for choosing among them: an altitude error of 90° weighs as
// much as an azimuth error of 180°, azimuths compared the short way round.
double sunPositionDistance(double altitude, double azimuth, double otherAltitude,
                           double otherAzimuth);

// The hour of the reference sample nearest to a sun position, an altitude error of 90° weighing
// as much as an azimuth error of 180°. The first of equally near samples wins.
double approximateSolarHour(double altitude, double azimuth);

} // namespace lumivesper::sun
