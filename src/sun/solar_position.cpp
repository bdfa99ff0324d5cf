#include "sun/solar_position.h"

#include <algorithm>
#include <cmath>

namespace lumivesper::sun {

namespace {

constexpr double pi = 3.141592653589793;

double toRadians(double degrees) {
    return degrees * pi / 180.0;
}
double toDegrees(double radians) {
    return radians * 180.0 / pi;
}

struct ClockReading {
    int hour = 0;
    int minute = 0;
    int second = 0;
};

// Hour, minute and whole second of the instant on a clock `offsetSeconds` east of UTC.
ClockReading readClock(std::chrono::system_clock::time_point date, int offsetSeconds) {
    using namespace std::chrono;
    const auto local = floor<seconds>(date) + seconds(offsetSeconds);
    const auto dayStart = floor<days>(local);
    const auto secondOfDay = (local - dayStart).count();
    return ClockReading{static_cast<int>(secondOfDay / 3600),
                        static_cast<int>((secondOfDay / 60) % 60),
                        static_cast<int>(secondOfDay % 60)};
}

} // namespace

std::optional<SolarPosition> solarPosition(std::chrono::system_clock::time_point date,
                                           const TimeZone& zone, double latitude, double longitude,
                                           SolarTerms* terms) {
    using namespace std::chrono;
    if (!std::isfinite(latitude) || !std::isfinite(longitude))
        return std::nullopt;
    const double unixSeconds = duration<double>(date.time_since_epoch()).count();
    const double T = (unixSeconds / 86400.0 + 2440587.5 - 2451545.0) / 36525.0;

    double L0 = std::fmod(280.46646 + T * (36000.76983 + T * 0.0003032), 360.0);
    if (L0 < 0)
        L0 += 360.0;
    const double M = 357.52911 + T * (35999.05029 - T * 0.0001537);
    const double e = 0.016708634 - T * (0.000042037 + T * 0.0000001267);
    const double omega = toRadians(125.04 - 1934.136 * T);
    const double epsilon0 =
        23.0 + (26.0 + (21.448 - T * (46.815 + T * (0.00059 - T * 0.001813))) / 60.0) / 60.0;
    const double epsilon = epsilon0 + 0.00256 * std::cos(omega);
    const double y = std::pow(std::tan(toRadians(epsilon / 2.0)), 2);

    const double L = toRadians(L0);
    const double m = toRadians(M);
    const double E =
        4.0 * toDegrees(y * std::sin(2 * L) - 2 * e * std::sin(m) +
                        4 * e * y * std::sin(m) * std::cos(2 * L) - 0.5 * y * y * std::sin(4 * L) -
                        1.25 * e * e * std::sin(2 * m));

    const int offsetSeconds = zone.secondsFromUtc(date);
    const ClockReading clock = readClock(date, offsetSeconds);
    const double Z = offsetSeconds / 3600.0;

    double S =
        (clock.hour * 60.0 + clock.minute + clock.second / 60.0) + (4.0 * longitude + E - 60.0 * Z);
    // The remainder, not repeated steps: a huge longitude must cost no more than a small one.
    S = std::fmod(S, 1440.0);
    if (S < 0)
        S += 1440.0;
    if (S >= 1440.0) // a tiny negative remainder plus 1440 rounds up to 1440
        S = 0.0;

    const double C = (1.914602 - T * (0.004817 + T * 0.000014)) * std::sin(m) +
                     (0.019993 - 0.000101 * T) * std::sin(2 * m) + 0.000289 * std::sin(3 * m);
    const double lambda = L0 + C - 0.00569 - 0.00478 * std::sin(omega);
    const double delta = std::asin(std::sin(toRadians(epsilon)) * std::sin(toRadians(lambda)));

    double H = S / 4.0 - 180.0;
    if (H < -180.0)
        H += 360.0;

    const double phi = toRadians(latitude);
    const double h = toRadians(H);
    const double c = std::clamp(
        std::sin(phi) * std::sin(delta) + std::cos(phi) * std::cos(delta) * std::cos(h), -1.0, 1.0);
    const double altitude = 90.0 - toDegrees(std::acos(c));

    double azimuth =
        std::fmod(toDegrees(std::atan2(std::sin(h), std::sin(phi) * std::cos(h) -
                                                        std::cos(phi) * std::tan(delta))) +
                      180.0,
                  360.0);
    if (azimuth < 0)
        azimuth += 360.0;
    if (azimuth >= 360.0) // a tiny negative remainder plus 360 rounds up to 360
        azimuth = 0.0;

    if (terms) {
        terms->equationOfTimeMinutes = E;
        terms->declinationDegrees = toDegrees(delta);
    }
    return SolarPosition{altitude, azimuth};
}

} // namespace lumivesper::sun
