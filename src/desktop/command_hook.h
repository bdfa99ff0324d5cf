#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace lumivesper::desktop {

// A hook command that is still running (a wallpaper setter such as swaybg stays to draw).
struct HookProcess {
    int pid = 0;
    unsigned long long startTime = 0; // clock ticks after boot, tells a reused id apart
};

// `commandTemplate` with every "{}" replaced by the shell-quoted path.
std::string hookCommandLine(const std::string& commandTemplate, const std::filesystem::path& file);

// Runs the hook through /bin/sh in a session of its own. A command that ends within a moment
// (feh --bg-fill, a script) is waited for, and a failure throws DesktopBackgroundError with its
// exit status; one that keeps running is left running and returned.
std::optional<HookProcess> startCommandHook(const std::string& commandTemplate,
                                            const std::filesystem::path& file);

// Ends a hook started before, with everything it started, if that very process still runs.
void stopCommandHook(const HookProcess& hook);

} // namespace lumivesper::desktop
