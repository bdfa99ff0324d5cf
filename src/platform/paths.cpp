#include "platform/paths.h"

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

namespace lumivesper::platform {

namespace {

std::filesystem::path homeDirectory() {
    if (const char* home = std::getenv("HOME"); home && *home)
        return home;
    if (const passwd* entry = getpwuid(getuid()); entry && entry->pw_dir)
        return entry->pw_dir;
    return std::filesystem::temp_directory_path();
}

std::filesystem::path xdgDirectory(const char* variable, const char* fallbackBelowHome) {
    // The XDG rules ignore relative values.
    if (const char* value = std::getenv(variable); value && *value == '/')
        return value;
    return homeDirectory() / fallbackBelowHome;
}

} // namespace

std::filesystem::path dataHome() {
    return xdgDirectory("XDG_DATA_HOME", ".local/share");
}

std::filesystem::path configHome() {
    return xdgDirectory("XDG_CONFIG_HOME", ".config");
}

std::filesystem::path stateHome() {
    return xdgDirectory("XDG_STATE_HOME", ".local/state");
}

std::filesystem::path cacheHome() {
    return xdgDirectory("XDG_CACHE_HOME", ".cache");
}

std::filesystem::path temporaryDirectory() {
    return std::filesystem::temp_directory_path();
}

} // namespace lumivesper::platform
