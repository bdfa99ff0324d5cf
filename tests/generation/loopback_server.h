#pragma once

#include "platform/base64.h"

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <httplib.h>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace lumivesper::generation::testing {

struct SeenRequest {
    std::string method, path, query, contentType, authorization, title, body;
    // A multipart body arrives here instead, by part name (its file's bytes for a file part).
    std::map<std::string, std::string> parts;
};

inline void replyJson(httplib::Response& response, const std::string& json, int status = 200) {
    response.status = status;
    response.set_content(json, "application/json");
}

// A whole 1x1 PNG, for answers that must decode as an image.
inline std::string tinyPng() {
    constexpr std::string_view base64 = "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAIAAACQd1PeAAAADElEQVR4nG"
                                        "P438AAAAQBAYDFKhhdAAAAAElFTkSuQmCC";
    const auto bytes = platform::decodeBase64(base64).value();
    return {bytes.begin(), bytes.end()};
}

// A real HTTP server on 127.0.0.1 and an ephemeral port, answering every GET and POST through
// `respond` and recording what it saw. It listens from construction on.
class RecordingServer {
public:
    using Responder = std::function<void(const SeenRequest&, httplib::Response&)>;

    RecordingServer() {
        auto handler = [this](const httplib::Request& request, httplib::Response& response) {
            const auto header = [&](const char* name) { return request.get_header_value(name); };
            SeenRequest seen{
                request.method,          request.path,      {},           header("Content-Type"),
                header("Authorization"), header("X-Title"), request.body, {}};
            for (const auto& [name, value] : request.params)
                seen.query += (seen.query.empty() ? "" : "&") + name + "=" + value;
            for (const auto& [name, part] : request.files)
                seen.parts[name] = part.content;
            Responder responder;
            {
                std::lock_guard lock(mutex_);
                seen_.push_back(seen);
                responder = respond_;
            }
            if (responder)
                responder(seen, response);
        };
        server_.Get(".*", handler);
        server_.Post(".*", handler);
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        // stop() does nothing to a server whose accept loop has not begun yet, so wait for it.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!server_.is_running() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
    }
    ~RecordingServer() { stop(); }

    // Waits for the handlers still running; a subclass whose members they use calls it first.
    void stop() {
        server_.stop();
        if (thread_.joinable())
            thread_.join();
    }
    void respond(Responder responder) {
        std::lock_guard lock(mutex_);
        respond_ = std::move(responder);
    }
    void answerWith(const std::string& body, int status = 200) {
        respond([=](const SeenRequest&, httplib::Response& r) { replyJson(r, body, status); });
    }
    std::vector<SeenRequest> seen(const std::string& path = "") const {
        std::lock_guard lock(mutex_);
        std::vector<SeenRequest> found;
        for (const auto& request : seen_)
            if (path.empty() || request.path == path)
                found.push_back(request);
        return found;
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }

private:
    mutable std::mutex mutex_;
    std::vector<SeenRequest> seen_;
    Responder respond_;
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
};

// What `call` throws as `Error`, if it does.
template <typename Error> std::optional<Error> thrown(const std::function<void()>& call) {
    try {
        call();
    } catch (const Error& error) {
        return error;
    }
    return std::nullopt;
}
template <typename Error> std::string failureText(const std::function<void()>& call) {
    return thrown<Error>(call).value().description();
}

inline std::string capturedStdout(const std::function<void()>& work) {
    ::testing::internal::CaptureStdout();
    work();
    return ::testing::internal::GetCapturedStdout();
}

// A one-way latch with a deadline, for handlers that must hold a response back.
class Gate {
public:
    void open() {
        std::lock_guard lock(mutex_);
        open_ = true;
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
    ScopedEnvironment(std::string name, const std::optional<std::string>& value)
        : name_(std::move(name)) {
        if (const char* old = std::getenv(name_.c_str()))
            previous_ = old;
        set(value);
    }
    ~ScopedEnvironment() { set(previous_); }

private:
    void set(const std::optional<std::string>& value) {
        value ? setenv(name_.c_str(), value->c_str(), 1) : unsetenv(name_.c_str());
    }
    std::string name_;
    std::optional<std::string> previous_;
};

// A clock the test moves by hand. It counts its reads, which tells a test that a caller has
// reached the point where it reads the time.
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
    bool waitForReads(int count) {
        std::unique_lock lock(mutex_);
        return read_.wait_for(lock, std::chrono::seconds(10), [&] { return reads_ >= count; });
    }

private:
    std::mutex mutex_;
    std::condition_variable read_;
    std::chrono::system_clock::time_point now_{
        std::chrono::sys_days{std::chrono::year{2026} / 6 / 1}};
    int reads_ = 0;
};

} // namespace lumivesper::generation::testing
