#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <httplib.h>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace lumivesper::generation::testing {

// A real HTTP server on 127.0.0.1 and an ephemeral port. Register routes on `server`, then
// start(). The socket listens from start() on, so requests made at once simply queue.
class LoopbackServer {
public:
    LoopbackServer() = default;
    ~LoopbackServer() {
        if (thread_.joinable()) {
            server.stop();
            thread_.join();
        }
    }
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    void start() {
        port_ = server.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server.listen_after_bind(); });
        // stop() does nothing to a server whose accept loop has not begun yet, so wait for it.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!server.is_running() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
    }

    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }

    httplib::Server server;

private:
    int port_ = 0;
    std::thread thread_;
};

// A one-way latch with a deadline, for handlers that must hold a response back.
class Gate {
public:
    void open() {
        {
            std::lock_guard lock(mutex_);
            open_ = true;
        }
        changed_.notify_all();
    }
    bool wait(std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [this] { return open_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
};

// Sets or removes an environment variable for one scope, then restores it.
class ScopedEnvironment {
public:
    ScopedEnvironment(std::string name, std::optional<std::string> value) : name_(std::move(name)) {
        if (const char* old = std::getenv(name_.c_str()))
            previous_ = old;
        if (value)
            setenv(name_.c_str(), value->c_str(), 1);
        else
            unsetenv(name_.c_str());
    }
    ~ScopedEnvironment() {
        if (previous_)
            setenv(name_.c_str(), previous_->c_str(), 1);
        else
            unsetenv(name_.c_str());
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    std::string name_;
    std::optional<std::string> previous_;
};

} // namespace lumivesper::generation::testing
