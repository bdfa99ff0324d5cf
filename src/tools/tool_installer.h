#pragma once

#include "tools/tool_logger.h"
#include "tools/tool_package.h"
#include "tools/tool_records.h"
#include "tools/tool_state.h"

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <stop_token>
#include <string>
#include <vector>

namespace lumivesper::tools {

// Unpacks downloaded tool archives into the tools directory, checks what came out and records it
// in the state file. One installation at a time.
class ToolInstaller {
public:
    ToolInstaller(ToolLogger& logger, ToolState& state, std::filesystem::path toolsDirectory);

    const std::filesystem::path& toolsDirectory() const { return toolsDirectory_; }

    // Free bytes for an unprivileged user on the file system that holds (or will hold) the tools.
    std::int64_t availableSpace() const;
    // Throws ToolError::insufficientDiskSpace when fewer than `requiredBytes` are free.
    void ensureDiskSpace(std::int64_t requiredBytes) const;

    // Unpacks the zip `archive` into `destination` (created when missing). Any failure but a
    // cancellation is ToolError::extractionFailed carrying the cause.
    void extract(const std::filesystem::path& archive, const std::filesystem::path& destination,
                 std::stop_token stop = {}) const;

    // Checks the executable and the models of `package` installed in `toolFolder`, and returns the
    // names of the models found, sorted. Throws ToolError::executableNotFound,
    // ToolError::verificationFailed or ToolError::modelsUnavailable.
    std::vector<std::string> verify(const ToolPackage& package,
                                    const std::filesystem::path& toolFolder) const;

    // Installs `archive` as `package`: checks space, unpacks beside the tools, verifies, then
    // replaces any earlier installation and records the tool as installed. On failure an earlier
    // installation and its record are left as they were.
    ToolInfo install(const ToolPackage& package, const std::filesystem::path& archive,
                     std::stop_token stop = {});

private:
    ToolLogger& logger_;
    ToolState& state_;
    const std::filesystem::path toolsDirectory_;
    std::mutex serial_;
};

} // namespace lumivesper::tools
