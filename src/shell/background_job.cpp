#include "shell/background_job.h"

#include "platform/main_thread.h"

namespace lumivesper::shell {

BackgroundJob::~BackgroundJob() {
    thread_.request_stop();
}

bool BackgroundJob::start(Work work, exporting::ProgressCallback progress, Finished finished) {
    if (running_)
        return false;
    running_ = true;
    // The previous thread has posted its end already; joining it here takes no time.
    thread_ = std::jthread([this, alive = lifetime_.weak(), work = std::move(work),
                            progress = std::move(progress),
                            finished = std::move(finished)](std::stop_token stop) {
        const exporting::ProgressCallback report = [&](int current, int total,
                                                       const std::string& message) {
            mainThread_.post([alive, progress, current, total, message] {
                if (!alive.expired() && progress)
                    progress(current, total, message);
            });
        };
        std::exception_ptr failure;
        try {
            work(stop, report);
        } catch (...) {
            failure = std::current_exception();
        }
        mainThread_.post([this, alive, finished, failure] {
            if (alive.expired())
                return;
            running_ = false;
            if (finished)
                finished(failure);
        });
    });
    return true;
}

void BackgroundJob::cancel() {
    if (running_)
        thread_.request_stop();
}

} // namespace lumivesper::shell
