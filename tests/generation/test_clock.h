#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace lumivesper::generation::testing {

// A clock the test moves by hand; it also counts how often it was read, which tells a test that a
// caller has reached the point where it reads the time.
class TestClock {
public:
    std::chrono::system_clock::time_point now() {
        std::lock_guard lock(mutex_);
        ++reads_;
        read_.notify_all();
        return now_;
    }
    void advance(std::chrono::seconds by) {
        std::lock_guard lock(mutex_);
        now_ += by;
    }
    bool waitForReads(int count, std::chrono::seconds timeout = std::chrono::seconds(10)) {
        std::unique_lock lock(mutex_);
        return read_.wait_for(lock, timeout, [&] { return reads_ >= count; });
    }
    auto function() {
        return [this] { return now(); };
    }

private:
    std::mutex mutex_;
    std::condition_variable read_;
    std::chrono::system_clock::time_point now_{
        std::chrono::sys_days{std::chrono::year{2026} / 6 / 1}};
    int reads_ = 0;
};

} // namespace lumivesper::generation::testing
