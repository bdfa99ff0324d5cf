#pragma once

#include <chrono>
#include <string>

namespace lumivesper::document {

// One entry of the recent-projects list. Equal when all three fields are.
struct RecentProject {
    std::string path;        // absolute path of the package; the key entries are deduplicated by
    std::string displayName; // package name without extension (or the last path component)
    std::chrono::system_clock::time_point lastOpened;

    bool operator==(const RecentProject&) const = default;
};

// The display name for a package path: its name without extension, else its last component.
std::string recentDisplayName(const std::string& packagePath);

} // namespace lumivesper::document
