#include "sun/time_zone.h"

#include <ctime>

namespace lumivesper::sun {

int TimeZone::secondsFromUtc(std::chrono::system_clock::time_point instant) const {
    if (kind_ == Kind::fixed)
        return offset_;
    const std::time_t seconds = std::chrono::system_clock::to_time_t(instant);
    std::tm local{};
    if (!localtime_r(&seconds, &local))
        return 0;
    return static_cast<int>(local.tm_gmtoff);
}

} // namespace lumivesper::sun
