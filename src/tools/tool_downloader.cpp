#include "tools/tool_downloader.h"

#include "platform/cancellation.h"
#include "platform/paths.h"
#include "platform/uuid.h"
#include "tools/tool_error.h"

#include <system_error>
#include <utility>

namespace lumivesper::tools {

ToolDownloader::ToolDownloader(std::filesystem::path downloadDirectory,
                               std::filesystem::path finishedDirectory, platform::HttpClient http)
    : downloadDirectory_(std::move(downloadDirectory)),
      finishedDirectory_(finishedDirectory.empty() ? platform::temporaryDirectory()
                                                   : std::move(finishedDirectory)),
      http_(http) {}

DownloadOutcome ToolDownloader::download(const std::string& url,
                                         const DownloadDelegate::ProgressHandler& progress,
                                         std::stop_token stop) {
    std::lock_guard serial(serial_);
    platform::throwIfCancelled(stop);

    std::error_code ignored;
    std::filesystem::create_directories(downloadDirectory_, ignored);
    const std::filesystem::path partial =
        downloadDirectory_ / (platform::Uuid::generate().toString() + ".part");

    DownloadDelegate delegate(progress, finishedDirectory_);
    std::stop_source task;
    std::stop_callback forwardStop(stop, [&task] { task.request_stop(); });
    std::future<DownloadOutcome> answer = delegate.start(task);

    try {
        platform::HttpRequest request;
        request.url = url;
        request.timeout = idleTimeout;
        request.overallTimeout = transferTimeout;
        platform::HttpResponse response = http_.download(
            request, partial,
            [&delegate](std::int64_t received, std::optional<std::int64_t> total) {
                delegate.didWriteData(0, received, total.value_or(-1));
            },
            task.get_token());
        std::optional<platform::HttpResponse> answered;
        if (response.status > 0)
            answered = std::move(response);
        delegate.didFinishDownloading(partial, answered);
    } catch (...) {
        delegate.didCompleteWithError(std::current_exception());
    }
    std::filesystem::remove(partial, ignored); // still there only when the transfer failed

    DownloadOutcome outcome;
    try {
        outcome = answer.get();
    } catch (const platform::CancellationError&) {
        throw;
    } catch (...) {
        throw ToolError::downloadFailed(std::nullopt, std::current_exception());
    }
    if (outcome.response.status < 200 || outcome.response.status > 299) {
        std::filesystem::remove(outcome.location, ignored);
        throw ToolError::downloadFailed(static_cast<int>(outcome.response.status));
    }
    return outcome;
}

} // namespace lumivesper::tools
