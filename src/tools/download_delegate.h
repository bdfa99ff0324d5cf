#pragma once

#include "platform/http_client.h"

#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <future>
#include <mutex>
#include <optional>
#include <stop_token>

namespace lumivesper::tools {

// A finished download: the file, moved out of the transfer's temporary place, and the response.
struct DownloadOutcome {
    std::filesystem::path location;
    platform::HttpResponse response;
};

// Follows one download from start to end and answers its caller exactly once, whatever order
// and number of completion events the transfer delivers. Events may arrive on any thread.
class DownloadDelegate {
public:
    using ProgressHandler = std::function<void(double fraction)>;

    // `destinationDirectory` receives the finished file as "LumivesperDownload-<UUID>.zip".
    explicit DownloadDelegate(ProgressHandler progressHandler,
                              std::filesystem::path destinationDirectory);
    DownloadDelegate(const DownloadDelegate&) = delete;
    DownloadDelegate& operator=(const DownloadDelegate&) = delete;

    // Hands over the running transfer (stopped when the delegate is done with it) and returns the
    // caller's single answer.
    std::future<DownloadOutcome> start(std::stop_source task);

    // Bytes arrived. A total below 1 means the server did not say, and nothing is reported.
    void didWriteData(std::int64_t bytesWritten, std::int64_t totalBytesWritten,
                      std::int64_t totalBytesExpectedToWrite);
    // The body is complete in `location`; `response` is none when the transfer got no response.
    void didFinishDownloading(const std::filesystem::path& location,
                              const std::optional<platform::HttpResponse>& response);
    // The transfer ended; a null `error` means it ended well, which didFinishDownloading answered.
    void didCompleteWithError(std::exception_ptr error);

    bool hasCompleted() const;

private:
    void invalidateAndCancel();

    const ProgressHandler progressHandler_;
    const std::filesystem::path destinationDirectory_;
    mutable std::mutex mutex_;
    std::optional<std::promise<DownloadOutcome>> continuation_;
    std::optional<std::stop_source> task_;
    bool hasCompleted_ = false;
};

} // namespace lumivesper::tools
