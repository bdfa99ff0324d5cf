#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

namespace lumivesper::server {

// A token bucket per key (a device, a client address): up to `burst` requests at once, refilled
// at `perHour` requests an hour. Safe to use from any thread. Buckets that have filled up again
// are forgotten, so memory follows the number of recently active keys, not of all keys ever seen.
class RateLimiter {
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    RateLimiter(int burst, int perHour, Clock clock = std::chrono::steady_clock::now);

    // None when the request may go ahead (and it is counted); otherwise how long until it may.
    std::optional<std::chrono::seconds> admit(const std::string& key);

    std::size_t trackedKeys() const;

private:
    struct Bucket {
        double available;
        std::chrono::steady_clock::time_point updated;
    };

    double refilled(const Bucket& bucket, std::chrono::steady_clock::time_point now) const;
    void forgetFullBuckets(std::chrono::steady_clock::time_point now);

    const double burst_;
    const double perSecond_;
    const Clock now_;
    mutable std::mutex mutex_;
    std::unordered_map<std::string, Bucket> buckets_;
    std::chrono::steady_clock::time_point lastSweep_;
};

} // namespace lumivesper::server
