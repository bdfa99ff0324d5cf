#pragma once

#include "shell/lifetime_token.h"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <filesystem>
#include <mutex>
#include <thread>
#include <vector>

namespace lumivesper::document {
class AppState;
}
namespace lumivesper::platform {
class MainThread;
}

namespace lumivesper::shell {

// Imports files without stalling the window: each file is checked and decoded on a worker
// thread, then added on the main thread as its own "Add Image" step, in the order given. A file
// that cannot be read leaves its console line and nothing else.
class ImageImportQueue {
public:
    ImageImportQueue(document::AppState& appState, platform::MainThread& mainThread);
    // Files not decoded yet are dropped; the one being decoded is waited for.
    ~ImageImportQueue();
    ImageImportQueue(const ImageImportQueue&) = delete;
    ImageImportQueue& operator=(const ImageImportQueue&) = delete;

    void importFiles(const std::vector<std::filesystem::path>& files);
    // Files given and not yet added or refused (main thread).
    std::size_t pendingCount() const { return pending_; }

private:
    void run(std::stop_token stop);

    document::AppState& appState_;
    platform::MainThread& mainThread_;
    std::size_t pending_ = 0;
    std::mutex mutex_;
    std::condition_variable_any arrived_;
    std::deque<std::filesystem::path> queue_;
    LifetimeToken lifetime_;
    std::jthread worker_; // last: stops first
};

} // namespace lumivesper::shell
