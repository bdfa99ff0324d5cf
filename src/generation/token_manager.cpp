#include "generation/token_manager.h"

#include "generation/request_text.h"
#include "generation/server_wire.h"
#include "platform/cancellation.h"
#include "platform/console.h"
#include "platform/uuid.h"

namespace lumivesper::generation {

namespace {

constexpr const char* bundleIdentifier = "com.lumivesper.app";

} // namespace

TokenError::TokenError(Case kind, long status, const std::string& description)
    : std::runtime_error(description), kind_(kind), status_(status) {}

TokenError TokenError::serverError(long status) {
    return {Case::serverError, status, "Server error: " + std::to_string(status)};
}
TokenError TokenError::invalidURL() {
    return {Case::invalidURL, 0, "Invalid server URL"};
}
TokenError TokenError::invalidResponse() {
    return {Case::invalidResponse, 0, "Invalid response from server"};
}

TokenManager::TokenManager(std::string serverURL_, settings::Defaults& defaults,
                           NetworkSession session, Clock clock)
    : serverURL(std::move(serverURL_)), defaults_(defaults), session_(std::move(session)),
      now_(std::move(clock)) {}

TokenManager::~TokenManager() = default;

std::string TokenManager::validToken(std::stop_token stop) {
    std::shared_ptr<PendingFetch> fetch;
    std::jthread previousFetch; // joined after the lock is released
    {
        std::lock_guard guard(lock_);
        const auto now = now_();
        if (cachedToken_ && tokenExpiresAt_ && now < *tokenExpiresAt_ - refreshBuffer)
            return *cachedToken_;
        if (pendingFetch_) {
            fetch = pendingFetch_;
        } else {
            fetch = std::make_shared<PendingFetch>();
            pendingFetch_ = fetch;
            // The fetch runs on its own thread so that a caller who gives up does not take it
            // down for the others. The previous one has already handed on its outcome.
            previousFetch = std::move(fetchThread_);
            fetchThread_ = std::jthread(
                [this, fetch](std::stop_token fetchStop) { runFetch(fetch, fetchStop); });
        }
    }
    return awaitFetch(*fetch, std::move(stop));
}

void TokenManager::runFetch(const std::shared_ptr<PendingFetch>& fetch, std::stop_token stop) {
    std::string token;
    std::exception_ptr failure;
    try {
        token = fetchToken(std::move(stop));
    } catch (...) {
        failure = std::current_exception();
    }
    {
        // The cache was written before this, so a caller arriving now finds the fresh token.
        std::lock_guard guard(lock_);
        pendingFetch_.reset();
    }
    {
        std::lock_guard guard(fetch->mutex);
        fetch->done = true;
        fetch->token = std::move(token);
        fetch->failure = failure;
    }
    fetch->finished.notify_all();
}

std::string TokenManager::awaitFetch(PendingFetch& fetch, std::stop_token stop) {
    std::unique_lock guard(fetch.mutex);
    if (!fetch.finished.wait(guard, stop, [&fetch] { return fetch.done; }))
        throw platform::CancellationError();
    if (fetch.failure)
        std::rethrow_exception(fetch.failure);
    return fetch.token;
}

std::string TokenManager::fetchToken(std::stop_token stop) {
    platform::consoleLine("🔑 Fetching new token...");
    const std::string url = serverURL + std::string(tokenPath);
    if (!isParsableURL(url))
        throw TokenError::invalidURL();

    platform::HttpRequest request;
    request.method = "POST";
    request.url = url;
    request.timeout = session_.timeout(std::chrono::seconds(60));
    request.headers = {{"Content-Type", "application/json"}};
    request.body = encodeTokenRequest({deviceId(), bundleIdentifier, LUMIVESPER_VERSION});
    const auto response = session_.http.send(request, std::move(stop));

    if (response.status != 200) {
        platform::consoleLine("❌ Token fetch failed: " + std::to_string(response.status));
        throw TokenError::serverError(response.status);
    }
    const auto decoded = decodeTokenResponse(response.body);
    {
        std::lock_guard guard(lock_);
        cachedToken_ = decoded.token;
        tokenExpiresAt_ = now_() + std::chrono::seconds(decoded.expiresIn);
    }
    platform::consoleLine("✅ Token fetched (expires in " + std::to_string(decoded.expiresIn) +
                          "s)");
    return decoded.token;
}

std::string TokenManager::deviceId() {
    return defaults_.stringOrInsert(deviceIdKey,
                                    [] { return platform::Uuid::generate().toString(); });
}

} // namespace lumivesper::generation
