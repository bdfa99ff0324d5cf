#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace lumivesper::desktop {

// How often the timer brings the background up to date: once a day for a slideshow that the
// desktop plays itself, every few minutes where the picture is set from outside.
enum class TimerSchedule { daily, everyFiveMinutes };

inline constexpr const char* timerUnitName = "lumivesper-background.timer";
inline constexpr const char* serviceUnitName = "lumivesper-background.service";

// $XDG_CONFIG_HOME/systemd/user.
std::filesystem::path userUnitFolder();

// The text of the two units: `command` is the program and its arguments that the service runs.
std::string serviceUnitText(const std::vector<std::string>& command);
std::string timerUnitText(TimerSchedule schedule);

// Writes the units, enables the timer (the link systemctl enable would make) and asks the user's
// systemd to reload and start it. Where no user systemd runs, the timer is still enabled for the
// next login; what went wrong comes back as warnings.
std::vector<std::string> installBackgroundTimer(const std::vector<std::string>& command,
                                                TimerSchedule schedule);

// Stops and removes the timer and its service; a missing timer is no error.
std::vector<std::string> removeBackgroundTimer();

} // namespace lumivesper::desktop
