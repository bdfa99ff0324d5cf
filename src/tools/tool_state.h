#pragma once

#include "tools/tool_records.h"

#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

namespace lumivesper::tools {

// Owner of the state file: one operation at a time, and the file on disk always matches the copy
// in memory after a change. A missing file is an empty state; a damaged one is refused with
// ToolError::invalidState and left as it is.
class ToolState {
public:
    explicit ToolState(std::filesystem::path stateFile);

    const std::filesystem::path& stateFile() const { return stateFile_; }

    ToolStateData currentState() const;
    std::optional<ToolInfo> tool(const std::string& name) const;

    // Writes `state` (temporary file + rename) and then adopts it. When the file cannot be
    // written the copy in memory stays as it was and ToolError::toolsDirectoryUnavailable is
    // thrown.
    void replace(ToolStateData state);

    // Read, change and write as one step; an exception from `change` leaves everything untouched.
    void update(const std::function<void(ToolStateData&)>& change);

private:
    void write(const ToolStateData& state) const;

    const std::filesystem::path stateFile_;
    mutable std::mutex mutex_;
    ToolStateData current_;
};

} // namespace lumivesper::tools
