#include "shell/image_import_queue.h"

#include "document/app_state.h"
#include "platform/main_thread.h"

namespace lumivesper::shell {

ImageImportQueue::ImageImportQueue(document::AppState& appState, platform::MainThread& mainThread)
    : appState_(appState), mainThread_(mainThread),
      worker_([this](std::stop_token stop) { run(stop); }) {}

ImageImportQueue::~ImageImportQueue() {
    worker_.request_stop();
    arrived_.notify_all();
}

void ImageImportQueue::importFiles(const std::vector<std::filesystem::path>& files) {
    if (files.empty())
        return;
    pending_ += files.size();
    {
        std::lock_guard lock(mutex_);
        queue_.insert(queue_.end(), files.begin(), files.end());
    }
    arrived_.notify_one();
}

void ImageImportQueue::run(std::stop_token stop) {
    for (;;) {
        std::filesystem::path file;
        {
            std::unique_lock lock(mutex_);
            if (!arrived_.wait(lock, stop, [this] { return !queue_.empty(); }))
                return; // stopped
            file = std::move(queue_.front());
            queue_.pop_front();
        }
        auto image = document::AppState::readImageFile(file);
        mainThread_.post([this, alive = lifetime_.weak(), image = std::move(image)]() mutable {
            if (alive.expired())
                return;
            --pending_;
            if (image)
                appState_.addImportedImage(std::move(*image));
        });
    }
}

} // namespace lumivesper::shell
