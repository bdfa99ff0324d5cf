#pragma once

#include "tools/process_runner_error.h"
#include "tools/tool_coordinator.h"
#include "tools/tool_logger.h"
#include "tools/tool_records.h"

#include <functional>
#include <mutex>
#include <stop_token>
#include <string>
#include <vector>

namespace lumivesper::tools {

// Runs installed tools as separate processes, one at a time, and logs every run.
class ToolExecutor {
public:
    ToolExecutor(ToolLogger& logger, ToolCoordinator& coordinator);

    // Runs one process to its end; see runProcess for what it throws.
    ProcessResult run(const ProcessRunContext& context, std::stop_token stop = {});

    // Runs `toolName` with each tile size in turn until one works, starting with the size that
    // worked last time for this model, and records the success. A failed run moves on to the next
    // size; a missing executable or a cancellation ends at once. When every size fails, throws
    // ToolError::allTileSizesFailed listing "<size>: <reason>" for each attempt.
    UpscaleRecord
    runWithTileSizes(const std::string& toolName, const std::string& model,
                     std::vector<int> tileSizes,
                     const std::function<ProcessRunContext(int tileSize)>& makeContext,
                     std::stop_token stop = {});

private:
    ToolLogger& logger_;
    ToolCoordinator& coordinator_;
    std::mutex serial_;
};

} // namespace lumivesper::tools
