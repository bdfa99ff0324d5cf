#include "cli/interrupt_stop.h"

#include <atomic>
#include <chrono>
#include <cstdlib>

namespace lumivesper::cli {

namespace {

// A signal handler can only leave a mark; the watcher thread turns it into a stop request.
std::atomic<bool> interruptReceived = false;

extern "C" void markInterrupt(int) {
    interruptReceived.store(true);
}

} // namespace

InterruptStop::InterruptStop(std::function<void()> onInterrupt)
    : onInterrupt_(std::move(onInterrupt)) {
    interruptReceived = false;
    struct sigaction action {};
    action.sa_handler = markInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &previousInterrupt_);
    sigaction(SIGTERM, &action, &previousTerminate_);
    watcher_ = std::thread([this] {
        std::unique_lock lock(mutex_);
        while (!done_) {
            // Polled in short slices: a handler may not notify a condition variable.
            wake_.wait_for(lock, std::chrono::milliseconds(50));
            if (!interruptReceived.exchange(false))
                continue;
            // A second interrupt means "now": some steps (encoding) do not stop midway.
            if (source_.stop_requested())
                std::_Exit(130);
            source_.request_stop();
            if (onInterrupt_)
                onInterrupt_();
        }
    });
}

InterruptStop::~InterruptStop() {
    {
        std::lock_guard lock(mutex_);
        done_ = true;
    }
    wake_.notify_one();
    watcher_.join();
    sigaction(SIGINT, &previousInterrupt_, nullptr);
    sigaction(SIGTERM, &previousTerminate_, nullptr);
}

} // namespace lumivesper::cli
