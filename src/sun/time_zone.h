#pragma once

#include <chrono>

namespace lumivesper::sun {

// The offset from UTC that a clock shows at a given instant.
class TimeZone {
public:
    static TimeZone utc() { return TimeZone(Kind::fixed, 0); }
    static TimeZone fixedOffset(int secondsEastOfUtc) {
        return TimeZone(Kind::fixed, secondsEastOfUtc);
    }
    // The process's local zone ($TZ or /etc/localtime), daylight saving included.
    static TimeZone current() { return TimeZone(Kind::local, 0); }

    int secondsFromUtc(std::chrono::system_clock::time_point instant) const;

private:
    enum class Kind { fixed, local };
    TimeZone(Kind kind, int offset) : kind_(kind), offset_(offset) {}
    Kind kind_;
    int offset_;
};

} // namespace lumivesper::sun
