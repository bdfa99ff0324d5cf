#pragma once

#include <atomic>
#include <condition_variable>
#include <httplib.h>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace lumivesper::testing {

// An update feed on 127.0.0.1: serves `body` with `status` at any path, counts the paths asked
// for, and can hold answers back until released.
class LoopbackFeed {
public:
    LoopbackFeed() {
        server_.Get(".*", [this](const httplib::Request& request, httplib::Response& response) {
            std::unique_lock lock(mutex_);
            paths_.push_back(request.path);
            arrived_.notify_all();
            // Bounded, so that a failing test cannot hang the suite.
            released_.wait_for(lock, std::chrono::seconds(10), [this] { return !holding_; });
            response.status = status_;
            response.set_content(body_, "application/rss+xml");
        });
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        // stop() is ignored until the server runs, so the destructor needs it running.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!server_.is_running() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
    }
    ~LoopbackFeed() {
        release();
        server_.stop();
        thread_.join();
    }
    LoopbackFeed(const LoopbackFeed&) = delete;
    LoopbackFeed& operator=(const LoopbackFeed&) = delete;

    std::string baseURL() const { return "http://127.0.0.1:" + std::to_string(port_); }

    void serve(std::string body, int status = 200) {
        std::lock_guard lock(mutex_);
        body_ = std::move(body);
        status_ = status;
    }
    void hold() {
        std::lock_guard lock(mutex_);
        holding_ = true;
    }
    void release() {
        std::lock_guard lock(mutex_);
        holding_ = false;
        released_.notify_all();
    }
    // Waits until `count` requests have arrived, or the deadline passes.
    bool waitForRequests(std::size_t count) {
        std::unique_lock lock(mutex_);
        return arrived_.wait_for(lock, std::chrono::seconds(10),
                                 [&] { return paths_.size() >= count; });
    }
    std::vector<std::string> paths() {
        std::lock_guard lock(mutex_);
        return paths_;
    }

private:
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::condition_variable released_;
    std::vector<std::string> paths_;
    std::string body_;
    int status_ = 200;
    bool holding_ = false;
};

} // namespace lumivesper::testing
