#include "tools/download_delegate.h"

#include "platform/uuid.h"

#include <system_error>
#include <utility>

namespace lumivesper::tools {

namespace {

// A rename, or a copy and a removal when the two places are on different file systems.
void moveFile(const std::filesystem::path& from, const std::filesystem::path& to) {
    std::error_code error;
    std::filesystem::rename(from, to, error);
    if (!error)
        return;
    if (error != std::errc::cross_device_link)
        throw std::filesystem::filesystem_error("Cannot move the download", from, to, error);
    std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing);
    std::filesystem::remove(from);
}

} // namespace

DownloadDelegate::DownloadDelegate(ProgressHandler progressHandler,
                                   std::filesystem::path destinationDirectory)
    : progressHandler_(std::move(progressHandler)),
      destinationDirectory_(std::move(destinationDirectory)) {}

std::future<DownloadOutcome> DownloadDelegate::start(std::stop_source task) {
    std::lock_guard lock(mutex_);
    continuation_.emplace();
    task_ = std::move(task);
    return continuation_->get_future();
}

void DownloadDelegate::didWriteData(std::int64_t, std::int64_t totalBytesWritten,
                                    std::int64_t totalBytesExpectedToWrite) {
    if (totalBytesExpectedToWrite < 1)
        return;
    if (progressHandler_)
        progressHandler_(static_cast<double>(totalBytesWritten) /
                         static_cast<double>(totalBytesExpectedToWrite));
}

void DownloadDelegate::didFinishDownloading(const std::filesystem::path& location,
                                            const std::optional<platform::HttpResponse>& response) {
    std::lock_guard lock(mutex_);
    if (hasCompleted_)
        return;
    hasCompleted_ = true;
    if (!response) {
        if (continuation_)
            continuation_->set_exception(std::make_exception_ptr(platform::HttpError(
                platform::HttpError::Kind::transferFailed, "Bad server response")));
        continuation_.reset();
        invalidateAndCancel();
        return;
    }

    // The transfer's own file is removed once this returns, so the download is moved now.
    const std::filesystem::path destination =
        destinationDirectory_ /
        ("LumivesperDownload-" + platform::Uuid::generate().toString() + ".zip");
    try {
        if (std::filesystem::exists(destination))
            std::filesystem::remove(destination);
        moveFile(location, destination);
        if (continuation_)
            continuation_->set_value(DownloadOutcome{destination, *response});
    } catch (...) {
        if (continuation_)
            continuation_->set_exception(std::current_exception());
    }
    continuation_.reset();
    invalidateAndCancel();
}

void DownloadDelegate::didCompleteWithError(std::exception_ptr error) {
    if (!error)
        return;
    std::lock_guard lock(mutex_);
    if (hasCompleted_)
        return;
    hasCompleted_ = true;
    if (continuation_)
        continuation_->set_exception(std::move(error));
    continuation_.reset();
    invalidateAndCancel();
}

bool DownloadDelegate::hasCompleted() const {
    std::lock_guard lock(mutex_);
    return hasCompleted_;
}

void DownloadDelegate::invalidateAndCancel() {
    if (task_)
        task_->request_stop();
    task_.reset();
}

} // namespace lumivesper::tools
