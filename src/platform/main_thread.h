#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

namespace lumivesper::platform {

// The one way for background work to reach the document: post a function to run on the main
// thread. The Qt implementation queues it on the event loop; tests and the CLI use
// QueuedMainThread.
class MainThread {
public:
    virtual ~MainThread() = default;
    virtual void post(std::function<void()> work) = 0;
};

// A hand-drained queue: whoever owns the "main" thread calls drain() or runUntil().
class QueuedMainThread final : public MainThread {
public:
    void post(std::function<void()> work) override;

    // Runs everything queued so far (and whatever that posts); returns how many ran.
    std::size_t drain();

    // Runs posted work as it arrives until `done` holds or the deadline passes; returns `done()`.
    bool runUntil(const std::function<bool()>& done,
                  std::chrono::steady_clock::duration timeout = std::chrono::seconds(30));

private:
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::deque<std::function<void()>> queue_;
};

} // namespace lumivesper::platform
