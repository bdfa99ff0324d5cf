#pragma once

#include "platform/http_client.h"
#include "tools/download_delegate.h"

#include <chrono>
#include <filesystem>
#include <mutex>
#include <stop_token>
#include <string>

namespace lumivesper::tools {

// Fetches tool archives, one at a time.
class ToolDownloader {
public:
    // Transfers in progress are written to `downloadDirectory`; finished archives are moved to
    // `finishedDirectory` (the system's temporary folder unless told otherwise).
    explicit ToolDownloader(std::filesystem::path downloadDirectory,
                            std::filesystem::path finishedDirectory = {},
                            platform::HttpClient http = {});

    const std::filesystem::path& downloadDirectory() const { return downloadDirectory_; }

    // Downloads `url` to "LumivesperDownload-<UUID>.zip", which then belongs to the caller.
    // `progress` gets fractions 0 to 1 when the server announced the size, and nothing when it
    // did not. Throws ToolError::downloadFailed (with the status for an answer other than 2xx,
    // with the cause for a transfer that failed) and CancellationError.
    DownloadOutcome download(const std::string& url,
                             const DownloadDelegate::ProgressHandler& progress = {},
                             std::stop_token stop = {});

    // A stalled transfer ends after the idle time-out; a slow one that keeps moving may take up to
    // the transfer time-out, long enough for a tool archive on a slow line.
    static constexpr std::chrono::seconds idleTimeout{60};
    static constexpr std::chrono::minutes transferTimeout{30};

private:
    const std::filesystem::path downloadDirectory_;
    const std::filesystem::path finishedDirectory_;
    const platform::HttpClient http_;
    std::mutex serial_;
};

} // namespace lumivesper::tools
