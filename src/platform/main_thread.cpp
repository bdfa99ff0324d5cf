#include "platform/main_thread.h"

namespace lumivesper::platform {

void QueuedMainThread::post(std::function<void()> work) {
    {
        std::lock_guard lock(mutex_);
        queue_.push_back(std::move(work));
    }
    arrived_.notify_all();
}

std::size_t QueuedMainThread::drain() {
    std::size_t count = 0;
    for (;;) {
        std::function<void()> work;
        {
            std::lock_guard lock(mutex_);
            if (queue_.empty())
                return count;
            work = std::move(queue_.front());
            queue_.pop_front();
        }
        work();
        ++count;
    }
}

bool QueuedMainThread::runUntil(const std::function<bool()>& done,
                                std::chrono::steady_clock::duration timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        drain();
        if (done())
            return true;
        std::unique_lock lock(mutex_);
        if (!arrived_.wait_until(lock, deadline, [this] { return !queue_.empty(); }))
            return done();
    }
}

} // namespace lumivesper::platform
