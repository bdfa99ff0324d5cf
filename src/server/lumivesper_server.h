#pragma once

#include "server/access_log.h"
#include "server/device_token.h"
#include "server/provider_forwarder.h"
#include "server/rate_limiter.h"
#include "server/served_files.h"
#include "server/server_options.h"

#include <memory>
#include <optional>
#include <stop_token>
#include <string>

namespace httplib {
class Server;
struct Request;
struct Response;
} // namespace httplib

namespace lumivesper::server {

// What a test or an embedding program may replace.
struct ServerEnvironment {
    DeviceTokenSigner::Clock tokenClock = std::chrono::system_clock::now;
    AccessLog::Sink logSink; // empty: standard output
};

// The program's server: device tokens, prompt templates, the image proxy, the update feeds and a
// health probe, over HTTP or HTTPS.
class LumivesperServer {
public:
    // Throws std::runtime_error for options that cannot work (unreadable TLS files or prompts).
    explicit LumivesperServer(ServerOptions options, ServerEnvironment environment = {});
    ~LumivesperServer();
    LumivesperServer(const LumivesperServer&) = delete;
    LumivesperServer& operator=(const LumivesperServer&) = delete;

    // Binds the listening socket and gives its port. Throws std::runtime_error when it cannot.
    int bind();
    // Serves on the bound socket until stop(); returns at once if nothing is bound.
    void run();
    // From any thread: cancels the provider requests in flight, then ends run().
    void stop();
    bool isRunning() const;

    AccessLog& log() { return log_; }

private:
    void installRoutes();
    void handleToken(const httplib::Request& request, httplib::Response& response);
    void handlePrompts(httplib::Response& response);
    void handleProxy(const httplib::Request& request, httplib::Response& response);
    void handleHealth(httplib::Response& response);
    void handleFeed(settings::UpdateChannel channel, httplib::Response& response);
    // True when the request was answered here, before its body was read.
    bool refusedBeforeReading(const httplib::Request& request, httplib::Response& response);
    std::string clientAddress(const httplib::Request& request) const;

    const ServerOptions options_;
    AccessLog log_;
    DeviceTokenSigner signer_;
    RateLimiter proxyLimiter_;
    RateLimiter tokenLimiter_;
    std::optional<ProviderForwarder> forwarder_;
    PromptSource prompts_;
    AppcastFeeds feeds_;
    std::stop_source stopping_;
    std::unique_ptr<httplib::Server> http_;
    int port_ = -1;
};

} // namespace lumivesper::server
