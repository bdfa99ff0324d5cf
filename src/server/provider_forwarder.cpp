#include "server/provider_forwarder.h"

#include "generation/request_text.h"
#include "generation/server_wire.h"
#include "platform/cancellation.h"

#include <nlohmann/json.hpp>

namespace lumivesper::server {

namespace {

ProxyReply plainReply(int status, std::string text, int providerStatus = 0) {
    return {status, std::move(text), "text/plain; charset=utf-8", std::nullopt, providerStatus};
}

// A provider's error body as readable text: its "error.message" when it has one.
std::string providerMessage(const std::string& body) {
    const auto json = nlohmann::json::parse(body, nullptr, false);
    if (json.is_object()) {
        const auto error = json.find("error");
        if (error != json.end() && error->is_object() && error->contains("message") &&
            (*error)["message"].is_string())
            return (*error)["message"].get<std::string>();
    }
    return generation::utf8Text(body).value_or("(no readable details)").substr(0, 2000);
}

} // namespace

ProviderForwarder::ProviderForwarder(std::string baseURL, std::string key,
                                     std::chrono::milliseconds timeout)
    : chatURL_(std::move(baseURL) + std::string(generation::chatCompletionsPath)),
      key_(std::move(key)), timeout_(timeout) {}

ProxyReply ProviderForwarder::forward(const std::string& body, std::stop_token stop) const {
    platform::HttpRequest request;
    request.method = "POST";
    request.url = chatURL_;
    request.timeout = timeout_;
    request.headers = {{"Authorization", "Bearer " + key_},
                       {"Content-Type", "application/json"},
                       {"X-Title", "Lumivesper AI"}};
    request.body = body;
    try {
        return replyFor(http_.send(request, std::move(stop)));
    } catch (const platform::CancellationError&) {
        return plainReply(503, "The server is shutting down; try again shortly.");
    } catch (const platform::HttpError& error) {
        if (error.kind() == platform::HttpError::Kind::timedOut)
            return plainReply(504, "The image provider did not answer within " +
                                       std::to_string((timeout_.count() + 999) / 1000) +
                                       " seconds.");
        return plainReply(502, std::string("Could not reach the image provider: ") + error.what());
    }
}

ProxyReply ProviderForwarder::replyFor(const platform::HttpResponse& response) const {
    const int status = static_cast<int>(response.status);
    if (status >= 200 && status < 300) {
        // OpenRouter reports some failures inside a 200; the program would only say it found no
        // image, so say what the provider said instead. Such answers are small, and images are
        // not: large bodies pass unparsed.
        constexpr std::size_t largestErrorAnswer = 64 * 1024;
        const auto json = response.body.size() <= largestErrorAnswer
                              ? nlohmann::json::parse(response.body, nullptr, false)
                              : nlohmann::json();
        if (json.is_object() && json.contains("error") && !json.contains("choices"))
            return plainReply(
                502, "The image provider reported an error: " + providerMessage(response.body),
                status);
        return {200, response.body, "application/json", std::nullopt, status};
    }
    if (status == 401 || status == 402 || status == 403)
        return plainReply(502,
                          "The image provider refused this server's account (status " +
                              std::to_string(status) + "). The server's operator must check it.",
                          status);
    if (status == 429) {
        auto reply = plainReply(
            429, "The image provider is busy: " + providerMessage(response.body), status);
        reply.retryAfter = response.header("Retry-After");
        return reply;
    }
    if (status >= 400 && status < 500)
        return plainReply(
            status, "The image provider rejected the request: " + providerMessage(response.body),
            status);
    return plainReply(502,
                      "The image provider failed (status " + std::to_string(status) +
                          "): " + providerMessage(response.body),
                      status);
}

} // namespace lumivesper::server
