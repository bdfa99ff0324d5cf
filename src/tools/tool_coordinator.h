#pragma once

#include "platform/http_client.h"
#include "tools/download_delegate.h"
#include "tools/tool_downloader.h"
#include "tools/tool_health_check.h"
#include "tools/tool_installer.h"
#include "tools/tool_logger.h"
#include "tools/tool_package.h"
#include "tools/tool_paths.h"
#include "tools/tool_state.h"

#include <filesystem>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>

namespace lumivesper::tools {

// Owns the tool layer: the log, the state file, downloads, installation and health checks.
// Preparations run one at a time, so two callers never install the same tool twice.
class ToolCoordinator {
public:
    // Throws ToolError::invalidState when the state file exists but cannot be read.
    explicit ToolCoordinator(std::filesystem::path toolsDirectory = defaultToolsDirectory(),
                             std::filesystem::path stateFile = defaultStateFile(),
                             std::optional<std::filesystem::path> logFile = defaultLogFile(),
                             platform::HttpClient http = {});
    ToolCoordinator(const ToolCoordinator&) = delete;
    ToolCoordinator& operator=(const ToolCoordinator&) = delete;

    ToolLogger& logger() { return logger_; }
    ToolState& state() { return state_; }
    ToolDownloader& downloader() { return downloader_; }
    ToolInstaller& installer() { return installer_; }
    const ToolHealthCheck& healthCheck() const { return healthCheck_; }

    // The recorded installation of `package` when it passes the health check.
    std::optional<ToolInfo> readyTool(const ToolPackage& package) const;

    // A tool ready to run: the recorded one when it is healthy, else a fresh download and
    // installation. `progress` reports the download. Throws ToolError (networkUnavailable when
    // the server cannot be reached at all) and CancellationError.
    ToolInfo prepare(const ToolPackage& package,
                     const DownloadDelegate::ProgressHandler& progress = {},
                     std::stop_token stop = {});

    // Remembers the run that worked; a tool without a record is left unrecorded.
    void recordSuccessfulUpscale(const std::string& toolName, const UpscaleRecord& record);

private:
    ToolLogger logger_;
    ToolState state_;
    ToolDownloader downloader_;
    ToolInstaller installer_;
    ToolHealthCheck healthCheck_;
    std::mutex serial_;
};

} // namespace lumivesper::tools
