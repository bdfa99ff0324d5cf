#pragma once

#include "generation/network_session.h"
#include "settings/defaults.h"

#include <chrono>
#include <condition_variable>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <thread>

namespace lumivesper::generation {

class TokenError : public std::runtime_error {
public:
    enum class Case { serverError, invalidURL, invalidResponse };

    static TokenError serverError(long status);
    static TokenError invalidURL();
    static TokenError invalidResponse();

    Case kind() const { return kind_; }
    long status() const { return status_; } // of serverError
    std::string description() const { return what(); }

private:
    TokenError(Case kind, long status, const std::string& description);

    Case kind_;
    long status_;
};

// The short-lived bearer token for our server's proxy. The device names itself by a random id
// kept in the defaults store; no account or secret is involved. Concurrent callers share one
// fetch and its outcome, failures included.
class TokenManager {
public:
    using Clock = std::function<std::chrono::system_clock::time_point()>;

    static constexpr const char* deviceIdKey = "LumivesperDeviceId";
    // A token counts as expired this long before its real end.
    static constexpr std::chrono::seconds refreshBuffer{600};

    TokenManager(std::string serverURL, settings::Defaults& defaults, NetworkSession session = {},
                 Clock clock = std::chrono::system_clock::now);
    ~TokenManager();
    TokenManager(const TokenManager&) = delete;
    TokenManager& operator=(const TokenManager&) = delete;

    // The cached token, or one fetched now. A stop of `stop` ends only this caller's wait: the
    // fetch goes on for the others and fills the cache.
    std::string validToken(std::stop_token stop = {});

    const std::string serverURL;

private:
    // The outcome of one fetch, shared by everyone who waits for it.
    struct PendingFetch {
        std::mutex mutex;
        std::condition_variable_any finished;
        bool done = false;
        std::string token;
        std::exception_ptr failure;
    };

    void runFetch(const std::shared_ptr<PendingFetch>& fetch, std::stop_token stop);
    std::string fetchToken(std::stop_token stop);
    std::string deviceId();
    static std::string awaitFetch(PendingFetch& fetch, std::stop_token stop);

    settings::Defaults& defaults_;
    const NetworkSession session_;
    const Clock now_;

    std::mutex lock_; // guards the three fields below, never held across a wait
    std::optional<std::string> cachedToken_;
    std::optional<std::chrono::system_clock::time_point> tokenExpiresAt_;
    std::shared_ptr<PendingFetch> pendingFetch_;
    std::jthread fetchThread_; // last: stopped and joined before the fields it uses go
};

} // namespace lumivesper::generation
