#pragma once

#include <filesystem>

namespace lumivesper::platform {

// $XDG_DATA_HOME, or ~/.local/share: where the application keeps its own files.
std::filesystem::path dataHome();
// $XDG_CONFIG_HOME, or ~/.config.
std::filesystem::path configHome();
// $XDG_STATE_HOME, or ~/.local/state: logs and other state worth keeping across runs.
std::filesystem::path stateHome();
// $XDG_CACHE_HOME, or ~/.cache: what can be made again, such as measurements.
std::filesystem::path cacheHome();
// The system's temporary folder.
std::filesystem::path temporaryDirectory();

} // namespace lumivesper::platform
