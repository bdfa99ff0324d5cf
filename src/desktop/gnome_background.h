#pragma once

#include "desktop/background_frames.h"
#include "desktop/sun_schedule.h"

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace lumivesper::desktop {

// A GNOME background slideshow for one day that starts at local midnight of `day`: each change
// of the schedule fades in over `fadeSeconds` (shorter where the pictures change sooner), and the
// durations add up to exactly 24 hours, so the loop stays in step with the clock.
std::string gnomeSlideshowXml(const std::vector<BackgroundFrame>& frames,
                              const std::vector<ScheduledChange>& schedule,
                              std::chrono::year_month_day day, int fadeSeconds = 60);

// The entry that lists the background in GNOME's Settings: `file` (a picture or a slideshow) and,
// for appearance wallpapers, the picture for the dark style.
std::string gnomeBackgroundPropertiesXml(const std::string& name, const std::filesystem::path& file,
                                         const std::filesystem::path& darkFile = {});

// Where GNOME's Settings looks for that entry: $XDG_DATA_HOME/gnome-background-properties.
std::filesystem::path gnomeBackgroundPropertiesFile();

// "file://" and the path, with everything but unreserved characters and "/" percent-encoded.
std::string fileUri(const std::filesystem::path& path);

// Sets org.gnome.desktop.background picture-uri and picture-uri-dark (and zoom) with the
// `gsettings` tool. Throws DesktopBackgroundError when the tool or the schema is missing.
void setGnomeBackground(const std::filesystem::path& light, const std::filesystem::path& dark);

// Puts both keys back to their defaults when they still point below `folder`.
void resetGnomeBackgroundIfUnder(const std::filesystem::path& folder);

} // namespace lumivesper::desktop
