#include "desktop/sun_schedule.h"

#include "desktop/desktop_background_error.h"

#include "sun/solar_position.h"
#include "sun/solar_time_samples.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace lumivesper::desktop {

namespace {

constexpr int secondsPerDay = 86400;
constexpr int sampleStep = 300;

} // namespace

std::chrono::system_clock::time_point localMidnight(std::chrono::system_clock::time_point now,
                                                    const sun::TimeZone& zone) {
    using namespace std::chrono;
    const auto offset = seconds(zone.secondsFromUtc(now));
    const auto local = floor<seconds>(now) + offset;
    const auto day = floor<days>(local);
    // The offset at midnight itself, for days on which the clock changes later.
    const auto guess = time_point_cast<system_clock::duration>(day - offset);
    return time_point_cast<system_clock::duration>(day - seconds(zone.secondsFromUtc(guess)));
}

std::vector<ScheduledChange> scheduleDay(const std::vector<BackgroundFrame>& frames,
                                         Location location,
                                         std::chrono::system_clock::time_point midnight,
                                         const sun::TimeZone& zone) {
    std::vector<sun::SolarPosition> samples;
    for (int second = 0; second < secondsPerDay; second += sampleStep) {
        const auto sun = sun::solarPosition(midnight + std::chrono::seconds(second), zone,
                                            location.latitude, location.longitude);
        if (!sun)
            throw DesktopBackgroundError("The location is not a place on Earth.");
        samples.push_back(*sun);
    }
    std::vector<ScheduledChange> schedule;
    for (std::size_t n = 0; n < frames.size(); ++n) {
        const auto& frame = frames[n];
        if (frame.hour) {
            const double hour = std::fmod(std::fmod(*frame.hour, 24.0) + 24.0, 24.0);
            schedule.push_back({n, std::min(secondsPerDay - 1, int(std::lround(hour * 3600)))});
            continue;
        }
        double best = std::numeric_limits<double>::max();
        int when = 0;
        for (std::size_t s = 0; s < samples.size(); ++s) {
            // The nearness of the reference table.
            const double d =
                sun::sunPositionDistance(frame.altitude.value_or(0), frame.azimuth.value_or(0),
                                         samples[s].altitude, samples[s].azimuth);
            if (d < best) {
                best = d;
                when = static_cast<int>(s) * sampleStep;
            }
        }
        schedule.push_back({n, when});
    }
    std::stable_sort(schedule.begin(), schedule.end(),
                     [](const auto& a, const auto& b) { return a.second < b.second; });
    std::vector<ScheduledChange> distinct;
    for (const auto& change : schedule) {
        if (!distinct.empty() && distinct.back().second == change.second)
            distinct.back() = change;
        else
            distinct.push_back(change);
    }
    return distinct;
}

std::size_t frameAt(const std::vector<ScheduledChange>& schedule, int second) {
    if (schedule.empty())
        return 0;
    std::size_t result = schedule.back().frame;
    for (const auto& change : schedule)
        if (change.second <= second)
            result = change.frame;
    return result;
}

} // namespace lumivesper::desktop
