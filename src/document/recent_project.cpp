#include "document/recent_project.h"

#include <filesystem>

namespace lumivesper::document {

std::string recentDisplayName(const std::string& packagePath) {
    std::filesystem::path path(packagePath);
    if (!path.has_filename())
        path = path.parent_path(); // a trailing slash
    std::string stem = path.stem().string();
    return stem.empty() ? path.filename().string() : stem;
}

} // namespace lumivesper::document
