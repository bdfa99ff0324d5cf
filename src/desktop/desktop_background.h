#pragma once

#include "desktop/desktop_background_error.h"
#include "desktop/sun_schedule.h"
#include "export/heic_frame.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace lumivesper::desktop {

enum class DesktopKind { gnome, plasma, command };

// The desktop of this session from $XDG_CURRENT_DESKTOP; none for one we cannot set ourselves.
std::optional<DesktopKind> detectDesktop();

struct ApplyRequest {
    std::filesystem::path source;            // a dynamic wallpaper (.heic) or a project (.lvesper)
    std::optional<DesktopKind> desktop;      // none: the session's
    std::string command;                     // a hook such as "swaybg -i {}"; set means `command`
    std::optional<Location> location;        // where the sun is watched; else the last one used
    std::vector<std::string> refreshCommand; // what the timer runs: program and arguments
};

struct ApplyResult {
    std::vector<std::string> lines;    // what was done, for the user
    std::vector<std::string> warnings; // what did not work but did not stop it
};

// $XDG_DATA_HOME/lumivesper/backgrounds: the pictures on the desktop now, and what was applied.
std::filesystem::path backgroundsFolder();

// Extracts the wallpaper's pictures under backgroundsFolder() and puts it on the desktop:
// GNOME gets picture-uri/picture-uri-dark (appearance) or a slideshow changing where the sun
// reaches each picture today (time), listed in GNOME's Settings; Plasma a wallpaper package with
// light and dark pictures (appearance) or the picture that fits the sun now (time); a command
// hook the picture to show now. A time wallpaper, and any hook, are kept current by a systemd
// user timer that runs `refreshCommand`. Applying again replaces the pictures and the timer.
// Throws DesktopBackgroundError, WallpaperReadError, ProjectPackageError, CancellationError;
// on failure the background applied before stays as it was.
ApplyResult applyDesktopBackground(const ApplyRequest& request, std::stop_token stop = {},
                                   const exporting::ProgressCallback& progress = {});

// The timer's work: brings the applied background up to date for `now` (today's slideshow, the
// picture of the moment). Throws DesktopBackgroundError when nothing is applied.
ApplyResult refreshDesktopBackground(
    std::chrono::system_clock::time_point now = std::chrono::system_clock::now());

// Takes the background away again: the timer, the Settings entry, the pictures, and GNOME's keys
// where they still show them.
ApplyResult removeDesktopBackground();

} // namespace lumivesper::desktop
