#include "tools/tool_executor.h"

#include "tools/process_runner.h"
#include "tools/tool_error.h"

#include <algorithm>
#include <cassert>

namespace lumivesper::tools {

namespace {

std::string commandLine(const ProcessRunContext& context) {
    std::string line = context.executableURL.string();
    for (const auto& argument : context.arguments)
        line += " " + argument;
    return line;
}

ProcessResult runLogged(ToolLogger& logger, const ProcessRunContext& context,
                        std::stop_token stop) {
    logger.log("Running " + commandLine(context) +
               (context.workingDirectory ? " in " + context.workingDirectory->string() : ""));
    try {
        ProcessResult result = runProcess(context, std::move(stop));
        logger.log("Finished " + context.executableURL.filename().string());
        return result;
    } catch (const std::exception& error) {
        logger.log(std::string("Failed: ") + error.what());
        throw;
    }
}

} // namespace

ToolExecutor::ToolExecutor(ToolLogger& logger, ToolCoordinator& coordinator)
    : logger_(logger), coordinator_(coordinator) {}

ProcessResult ToolExecutor::run(const ProcessRunContext& context, std::stop_token stop) {
    std::lock_guard serial(serial_);
    return runLogged(logger_, context, std::move(stop));
}

UpscaleRecord ToolExecutor::runWithTileSizes(
    const std::string& toolName, const std::string& model, std::vector<int> tileSizes,
    const std::function<ProcessRunContext(int tileSize)>& makeContext, std::stop_token stop) {
    assert(!tileSizes.empty());
    std::lock_guard serial(serial_);

    // The size that fitted last time most likely fits again; try it first.
    if (auto tool = coordinator_.state().tool(toolName);
        tool && tool->lastSuccessfulUpscale && tool->lastSuccessfulUpscale->model == model) {
        auto remembered =
            std::find(tileSizes.begin(), tileSizes.end(), tool->lastSuccessfulUpscale->tileSize);
        if (remembered != tileSizes.end())
            std::rotate(tileSizes.begin(), remembered, remembered + 1);
    }

    std::string attempts;
    for (int tileSize : tileSizes) {
        try {
            runLogged(logger_, makeContext(tileSize), stop);
        } catch (const ProcessRunnerError& error) {
            if (error.kind() == ProcessRunnerError::Kind::missingExecutable)
                throw;
            attempts += (attempts.empty() ? "" : "\n") + std::to_string(tileSize) + ": " +
                        error.description();
            continue;
        }
        UpscaleRecord record{isoTimestamp(std::chrono::system_clock::now()), tileSize, model};
        coordinator_.recordSuccessfulUpscale(toolName, record);
        return record;
    }
    throw ToolError::allTileSizesFailed(attempts);
}

} // namespace lumivesper::tools
