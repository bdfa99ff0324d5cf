#pragma once

#include <optional>

namespace lumivesper::sun {

// The hour of the day that an image stands for: its own hour when it knows one (wrapped into
// 0..24), else the reference hour of its sun position, else 0.
double effectiveHour(std::optional<double> timeOfDay, std::optional<double> altitude,
                     std::optional<double> azimuth);

} // namespace lumivesper::sun
