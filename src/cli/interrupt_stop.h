#pragma once

#include <condition_variable>
#include <csignal>
#include <functional>
#include <mutex>
#include <stop_token>
#include <thread>

namespace lumivesper::cli {

// While alive, Ctrl-C (SIGINT) and SIGTERM no longer end the process: they request a stop of
// token() instead, so that long work can end cleanly and remove what it made; a second one ends
// the process at once (status 130). The previous handlers come back when it is destroyed. One at
// a time per process.
class InterruptStop {
public:
    explicit InterruptStop(std::function<void()> onInterrupt = {});
    ~InterruptStop();
    InterruptStop(const InterruptStop&) = delete;
    InterruptStop& operator=(const InterruptStop&) = delete;

    std::stop_token token() const { return source_.get_token(); }

private:
    std::stop_source source_;
    struct sigaction previousInterrupt_ {};
    struct sigaction previousTerminate_ {};
    std::function<void()> onInterrupt_;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool done_ = false;
    std::thread watcher_;
};

} // namespace lumivesper::cli
