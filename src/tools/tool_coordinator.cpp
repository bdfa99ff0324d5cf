#include "tools/tool_coordinator.h"

#include "platform/cancellation.h"
#include "tools/tool_error.h"

#include <system_error>
#include <utility>

namespace lumivesper::tools {

namespace {

bool isUnreachable(const ToolError& error) {
    if (error.kind() != ToolError::Kind::downloadFailed || !error.underlyingError())
        return false;
    try {
        std::rethrow_exception(error.underlyingError());
    } catch (const platform::HttpError& cause) {
        return cause.kind() == platform::HttpError::Kind::cannotConnect;
    } catch (...) {
        return false;
    }
}

// The downloaded archive is of no use once installed, or once installing it failed.
class FileGuard {
public:
    explicit FileGuard(std::filesystem::path file) : file_(std::move(file)) {}
    ~FileGuard() {
        std::error_code ignored;
        std::filesystem::remove(file_, ignored);
    }
    FileGuard(const FileGuard&) = delete;
    FileGuard& operator=(const FileGuard&) = delete;

private:
    std::filesystem::path file_;
};

} // namespace

ToolCoordinator::ToolCoordinator(std::filesystem::path toolsDirectory,
                                 std::filesystem::path stateFile,
                                 std::optional<std::filesystem::path> logFile,
                                 platform::HttpClient http)
    : logger_(std::move(logFile)), state_(std::move(stateFile)),
      downloader_(toolsDirectory / ".downloads", {}, http),
      installer_(logger_, state_, std::move(toolsDirectory)) {}

std::optional<ToolInfo> ToolCoordinator::readyTool(const ToolPackage& package) const {
    std::optional<ToolInfo> tool = state_.tool(package.name);
    if (!healthCheck_.isHealthy(tool, package.requiredModels))
        return std::nullopt;
    return tool;
}

ToolInfo ToolCoordinator::prepare(const ToolPackage& package,
                                  const DownloadDelegate::ProgressHandler& progress,
                                  std::stop_token stop) {
    std::lock_guard serial(serial_);
    const std::optional<ToolInfo> recorded = state_.tool(package.name);
    const std::vector<std::string> problems =
        healthCheck_.problems(recorded, package.requiredModels);
    if (problems.empty()) {
        ToolInfo tool = *recorded;
        tool.verifiedAt = isoTimestamp(std::chrono::system_clock::now());
        state_.update([&](ToolStateData& data) { data.tools[package.name] = tool; });
        return tool;
    }
    std::string reasons;
    for (const auto& problem : problems)
        reasons += (reasons.empty() ? "" : "; ") + problem;
    logger_.log(package.name + " needs installing: " + reasons);

    // Refused before downloading, so a full disk does not cost the user a download first.
    installer_.ensureDiskSpace(package.requiredSpace);
    DownloadOutcome download;
    try {
        download = downloader_.download(package.archiveURL, progress, stop);
    } catch (const ToolError& error) {
        logger_.log("Download of " + package.archiveURL + " failed: " + error.description() + " " +
                    describeError(error.underlyingError()));
        if (isUnreachable(error))
            throw ToolError::networkUnavailable();
        throw;
    }
    FileGuard archive(download.location);
    return installer_.install(package, download.location, stop);
}

void ToolCoordinator::recordSuccessfulUpscale(const std::string& toolName,
                                              const UpscaleRecord& record) {
    state_.update([&](ToolStateData& data) {
        auto found = data.tools.find(toolName);
        if (found != data.tools.end())
            found->second.lastSuccessfulUpscale = record;
    });
}

} // namespace lumivesper::tools
