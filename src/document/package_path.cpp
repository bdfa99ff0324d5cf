#include "document/package_path.h"

#include "document/project_io.h"

#include <system_error>

namespace lumivesper::document {

namespace fs = std::filesystem;

fs::path normalisedPackagePath(const fs::path& path) {
    if (path.empty())
        return path;
    std::error_code error;
    fs::path absolute = fs::absolute(path, error);
    if (error)
        absolute = path; // no working folder to resolve against: keep what was given
    fs::path normal = absolute.lexically_normal();
    if (!normal.has_filename() && normal.has_relative_path())
        normal = normal.parent_path(); // "a/b/" becomes "a/b"
    return normal;
}

fs::path packagePathForSaving(const fs::path& path) {
    fs::path normal = normalisedPackagePath(path);
    if (normal.has_filename() && normal.extension() != std::string(".") + packageExtension)
        normal += std::string(".") + packageExtension;
    return normal;
}

} // namespace lumivesper::document
