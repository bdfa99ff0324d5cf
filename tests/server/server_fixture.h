#pragma once

#include "generation/loopback_server.h"
#include "generation/openrouter_proxy_client.h"
#include "server/lumivesper_server.h"
#include "support/temporary_folder.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <thread>

namespace lumivesper::server::testing {

using generation::testing::RecordingServer;

inline constexpr const char* operatorKey = "sk-or-operator-key-0123456789";
inline constexpr const char* tokenSecret = "a-test-secret-that-is-long-enough-for-hmac";

// The server's token clock. A step set with stepAfterNextRead is applied just after the next
// read, which lets a test age a token between the moment it is issued and the moment it is shown.
class SteppedClock {
public:
    std::chrono::system_clock::time_point now() {
        std::lock_guard lock(mutex_);
        const auto value = now_;
        now_ += pendingStep_;
        pendingStep_ = {};
        return value;
    }
    void stepAfterNextRead(std::chrono::seconds step) {
        std::lock_guard lock(mutex_);
        pendingStep_ = step;
    }

private:
    std::mutex mutex_;
    std::chrono::system_clock::time_point now_ = std::chrono::system_clock::now();
    std::chrono::seconds pendingStep_{};
};

// The real server on 127.0.0.1 and an ephemeral port, serving on a thread of its own.
class RunningServer {
public:
    RunningServer(ServerOptions options, ServerEnvironment environment)
        : server_(std::move(options), std::move(environment)) {
        port_ = server_.bind();
        thread_ = std::thread([this] { server_.run(); });
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!server_.isRunning() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
    }
    ~RunningServer() {
        server_.stop();
        thread_.join();
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }
    int port() const { return port_; }

private:
    LumivesperServer server_;
    int port_ = 0;
    std::thread thread_;
};

// A server in front of a recording stand-in for OpenRouter, with the program's own proxy client.
class ServerTest : public ::testing::Test {
protected:
    ServerOptions defaultOptions() const {
        ServerOptions options;
        options.host = "127.0.0.1";
        options.port = 0;
        options.threads = 8;
        options.tokenSecret = tokenSecret;
        options.providerKey = operatorKey;
        options.providerURL = provider.url() + "/api/v1";
        return options;
    }

    void start(const std::function<void(ServerOptions&)>& adjust = {}) {
        ServerOptions options = defaultOptions();
        if (adjust)
            adjust(options);
        ServerEnvironment environment;
        environment.tokenClock = [this] { return clock.now(); };
        environment.logSink = [this](std::string_view line) {
            std::lock_guard lock(logMutex_);
            logLines_.emplace_back(line);
            logged_.notify_all();
        };
        server = std::make_unique<RunningServer>(std::move(options), std::move(environment));
    }

    std::unique_ptr<generation::OpenRouterProxyClient> client() {
        return std::make_unique<generation::OpenRouterProxyClient>(server->url(), defaults);
    }

    std::vector<std::string> logLines() {
        std::lock_guard lock(logMutex_);
        return logLines_;
    }
    // The access lines for one path, parsed.
    std::vector<nlohmann::json> requestsTo(const std::string& path) {
        std::vector<nlohmann::json> found;
        for (const auto& line : logLines()) {
            auto json = nlohmann::json::parse(line);
            if (json["event"] == "request" && json["path"] == path)
                found.push_back(std::move(json));
        }
        return found;
    }
    // The statuses logged for a path, once there are `count` of them: a request's line is
    // written just after its answer, so a client may be done before the line is.
    std::vector<int> statusesOf(const std::string& path, std::size_t count) {
        {
            std::unique_lock lock(logMutex_);
            logged_.wait_for(lock, std::chrono::seconds(10), [&] {
                return std::count_if(logLines_.begin(), logLines_.end(), [&](const auto& line) {
                           return line.find(R"("path":")" + path + "\"") != std::string::npos;
                       }) >= static_cast<std::ptrdiff_t>(count);
            });
        }
        std::vector<int> statuses;
        for (const auto& line : requestsTo(path))
            statuses.push_back(line["status"].get<int>());
        return statuses;
    }
    void expectStatuses(const std::string& path, const std::vector<int>& expected) {
        EXPECT_EQ(statusesOf(path, expected.size()), expected) << path;
    }

    // Declared before the server so that they outlive it.
    RecordingServer provider;
    lumivesper::testing::TemporaryFolder folder;
    settings::Defaults defaults{folder.path() / "defaults.json"};
    SteppedClock clock;
    std::mutex logMutex_;
    std::condition_variable logged_;
    std::vector<std::string> logLines_;
    std::unique_ptr<RunningServer> server;
};

inline constexpr const char* proxyPath = "/api/proxy/chat/completions";
inline constexpr const char* providerPath = "/api/v1/chat/completions";

} // namespace lumivesper::server::testing
