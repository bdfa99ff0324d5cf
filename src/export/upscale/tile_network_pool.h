#pragma once

#include "export/upscale/tile_network.h"

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <stop_token>
#include <vector>

namespace lumivesper::upscale {

// Networks of the tile model, lent to one caller at a time: a network must not run two tiles at
// once. Up to `maxNets` are made on demand by `make`; a caller beyond that waits for one to come
// back. Each network keeps its own working memory, which for a real 4x model at 512 tiles runs
// to gigabytes.
class TileNetworkPool {
public:
    using Factory = std::function<std::unique_ptr<TileNetwork>()>;

    // Makes the first network at once, so that a model that cannot be run fails here.
    TileNetworkPool(Factory make, std::size_t maxNets);

    class Lease {
    public:
        Lease(TileNetworkPool& pool, std::unique_ptr<TileNetwork> net)
            : pool_(&pool), net_(std::move(net)) {}
        Lease(Lease&& other) noexcept = default;
        Lease& operator=(Lease&&) = delete;
        ~Lease();

        TileNetwork& net() { return *net_; }

    private:
        TileNetworkPool* pool_;
        std::unique_ptr<TileNetwork> net_;
    };

    // Waits for a free network; throws platform::CancellationError if `stop` fires meanwhile.
    Lease acquire(std::stop_token stop = {});

    std::size_t maxNets() const { return maxNets_; }

private:
    void giveBack(std::unique_ptr<TileNetwork> net);

    Factory make_;
    std::size_t maxNets_;

    std::mutex mutex_;
    std::condition_variable_any returned_;
    std::vector<std::unique_ptr<TileNetwork>> idle_;
    std::size_t made_ = 0;
};

} // namespace lumivesper::upscale
