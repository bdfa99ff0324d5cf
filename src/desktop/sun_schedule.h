#pragma once

#include "desktop/background_frames.h"
#include "sun/time_zone.h"

#include <chrono>
#include <vector>

namespace lumivesper::desktop {

struct Location {
    double latitude = 0;  // degrees, positive north
    double longitude = 0; // degrees, positive east
};

// One change of picture in a day: from `second` after local midnight on, `frame` shows.
struct ScheduledChange {
    std::size_t frame = 0; // index into BackgroundFrames::frames
    int second = 0;        // 0 up to under 86400
};

// The local day of `now` in `zone`: its midnight, as an instant.
std::chrono::system_clock::time_point localMidnight(std::chrono::system_clock::time_point now,
                                                    const sun::TimeZone& zone);

// When each frame belongs on screen on the day that begins at `midnight`: frames placed by hour
// at their hour; frames placed by the sun at the moment the sun, at `location`, comes nearest to
// their position (5-minute steps, the nearness of the reference table). Sorted by time; of frames
// due at the same moment the last one stays, so that no change lasts no time at all.
std::vector<ScheduledChange> scheduleDay(const std::vector<BackgroundFrame>& frames,
                                         Location location,
                                         std::chrono::system_clock::time_point midnight,
                                         const sun::TimeZone& zone);

// The frame on screen at `second` after midnight: the last change at or before it, or the day's
// last change when none has come yet (the night goes on from yesterday).
std::size_t frameAt(const std::vector<ScheduledChange>& schedule, int second);

} // namespace lumivesper::desktop
