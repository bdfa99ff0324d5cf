#include "server/rate_limiter.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace lumivesper::server {

namespace {

constexpr auto sweepInterval = std::chrono::minutes(1);

} // namespace

RateLimiter::RateLimiter(int burst, int perHour, Clock clock)
    : burst_(burst), perSecond_(perHour / 3600.0), now_(std::move(clock)), lastSweep_(now_()) {
    if (burst < 1 || perHour < 1)
        throw std::invalid_argument("A rate limit needs a burst and an hourly rate of at least 1");
}

double RateLimiter::refilled(const Bucket& bucket,
                             std::chrono::steady_clock::time_point now) const {
    const double elapsed = std::chrono::duration<double>(now - bucket.updated).count();
    return std::min(burst_, bucket.available + elapsed * perSecond_);
}

std::optional<std::chrono::seconds> RateLimiter::admit(const std::string& key) {
    const auto now = now_();
    std::lock_guard guard(mutex_);
    if (now - lastSweep_ >= sweepInterval)
        forgetFullBuckets(now);

    auto [entry, added] = buckets_.try_emplace(key, Bucket{burst_, now});
    Bucket& bucket = entry->second;
    bucket.available = refilled(bucket, now);
    bucket.updated = now;
    if (bucket.available >= 1.0) {
        bucket.available -= 1.0;
        return std::nullopt;
    }
    const double wait = (1.0 - bucket.available) / perSecond_;
    return std::chrono::seconds(std::max<long long>(1, static_cast<long long>(std::ceil(wait))));
}

void RateLimiter::forgetFullBuckets(std::chrono::steady_clock::time_point now) {
    std::erase_if(buckets_,
                  [&](const auto& entry) { return refilled(entry.second, now) >= burst_; });
    lastSweep_ = now;
}

std::size_t RateLimiter::trackedKeys() const {
    std::lock_guard guard(mutex_);
    return buckets_.size();
}

} // namespace lumivesper::server
