#include "export/upscale/tile_network_pool.h"

#include "platform/cancellation.h"

#include <algorithm>

namespace lumivesper::upscale {

TileNetworkPool::TileNetworkPool(Factory make, std::size_t maxNets)
    : make_(std::move(make)), maxNets_(std::max<std::size_t>(maxNets, 1)) {
    idle_.push_back(make_());
    made_ = 1;
}

TileNetworkPool::Lease TileNetworkPool::acquire(std::stop_token stop) {
    std::unique_lock lock(mutex_);
    if (!returned_.wait(lock, stop, [&] { return !idle_.empty() || made_ < maxNets_; }))
        throw platform::CancellationError();
    if (!idle_.empty()) {
        auto net = std::move(idle_.back());
        idle_.pop_back();
        return Lease(*this, std::move(net));
    }
    ++made_;
    lock.unlock();
    try {
        return Lease(*this, make_());
    } catch (...) {
        std::lock_guard relock(mutex_);
        --made_;
        returned_.notify_one();
        throw;
    }
}

void TileNetworkPool::giveBack(std::unique_ptr<TileNetwork> net) {
    {
        std::lock_guard lock(mutex_);
        idle_.push_back(std::move(net));
    }
    returned_.notify_one();
}

TileNetworkPool::Lease::~Lease() {
    if (net_)
        pool_->giveBack(std::move(net_));
}

} // namespace lumivesper::upscale
