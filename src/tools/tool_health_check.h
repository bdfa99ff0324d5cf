#pragma once

#include "tools/tool_records.h"

#include <optional>
#include <string>
#include <vector>

namespace lumivesper::tools {

// Looks at a recorded tool on disk: is it still there, runnable, with its models?
class ToolHealthCheck {
public:
    // What keeps `tool` from running, in the order found; empty when it is ready.
    std::vector<std::string> problems(const std::optional<ToolInfo>& tool,
                                      const std::vector<std::string>& requiredModels) const;

    bool isHealthy(const std::optional<ToolInfo>& tool,
                   const std::vector<std::string>& requiredModels) const {
        return problems(tool, requiredModels).empty();
    }
};

} // namespace lumivesper::tools
