#pragma once

#include "platform/http_client.h"

#include <chrono>
#include <optional>
#include <stop_token>
#include <string>

namespace lumivesper::server {

// What the proxy answers the program: a status the program's client understands (200 with one of
// the chat answer shapes, 401 only ever for its own token) and a body it can show.
struct ProxyReply {
    int status = 200;
    std::string body;
    std::string contentType = "application/json";
    std::optional<std::string> retryAfter;
    int providerStatus = 0; // for the log; 0 when the provider gave no answer
};

// Forwards chat completions to OpenRouter under the operator's key, and turns what comes back
// into a reply for the program. The provider's 401 or 403 means the operator's key is at fault,
// never the device's token, so it must not reach the program as 401.
class ProviderForwarder {
public:
    ProviderForwarder(std::string baseURL, std::string key, std::chrono::milliseconds timeout);

    // `body` is passed on as it stands. A stop ends the wait (the server is shutting down).
    ProxyReply forward(const std::string& body, std::stop_token stop) const;

private:
    ProxyReply replyFor(const platform::HttpResponse& response) const;

    const std::string chatURL_;
    const std::string key_;
    const std::chrono::milliseconds timeout_;
    const platform::HttpClient http_{};
};

} // namespace lumivesper::server
