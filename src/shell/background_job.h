#pragma once

#include "export/heic_frame.h"
#include "shell/lifetime_token.h"

#include <exception>
#include <functional>
#include <stop_token>
#include <string>
#include <thread>

namespace lumivesper::platform {
class MainThread;
}

namespace lumivesper::shell {

// One long piece of work off the main thread, such as an import or putting a wallpaper on the
// desktop. Its progress and its end come back through the main-thread post; a stop asks the work
// to end at its next check. Replies meant for a job that has gone are dropped. Main thread only.
class BackgroundJob {
public:
    using Work = std::function<void(std::stop_token, const exporting::ProgressCallback&)>;
    // Null when the work returned, else what it threw (a CancellationError after a stop).
    using Finished = std::function<void(std::exception_ptr failure)>;

    explicit BackgroundJob(platform::MainThread& mainThread) : mainThread_(mainThread) {}
    // Stops the work and waits for it; its replies are dropped.
    ~BackgroundJob();
    BackgroundJob(const BackgroundJob&) = delete;
    BackgroundJob& operator=(const BackgroundJob&) = delete;

    // Starts `work` unless another is still running, which returns false and starts nothing.
    bool start(Work work, exporting::ProgressCallback progress, Finished finished);
    void cancel();
    bool isRunning() const { return running_; }

private:
    platform::MainThread& mainThread_;
    bool running_ = false;
    LifetimeToken lifetime_;
    std::jthread thread_; // last: stopped and joined first
};

} // namespace lumivesper::shell
