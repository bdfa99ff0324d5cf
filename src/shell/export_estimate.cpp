#include "shell/export_estimate.h"

#include "export/upscale/model_location.h"
#include "export/upscale/onnx_upscale_tool.h"
#include "export/upscale/tile_time_cache.h"
#include "export/upscale_workload.h"

namespace lumivesper::shell {

UpscaleEstimator::TileSeconds UpscaleEstimator::standardTileSeconds() {
    return []() -> std::optional<double> {
        const auto model = upscale::findUpscaleModel();
        if (!model)
            return std::nullopt;
        return upscale::TileTimeCache(upscale::TileTimeCache::standardLocation())
            .secondsPerTile(upscale::standardTileTimeKey(*model));
    };
}

UpscaleEstimator::UpscaleEstimator(platform::MainThread& mainThread, TileSeconds tileSeconds)
    : mainThread_(mainThread), tileSeconds_(std::move(tileSeconds)) {}

UpscaleEstimator::~UpscaleEstimator() {
    ++*latest_; // whatever is still running reports to no one
}

void UpscaleEstimator::request(std::vector<document::WallpaperImage> images,
                               exporting::HeicExportOptions options) {
    const unsigned generation = ++*latest_;
    if (!options.upscaleEnabled) {
        if (!text_.empty()) {
            text_.clear();
            changed_.notify();
        }
        return;
    }
    // Workers of earlier requests that have ended are joined here, at no wait.
    std::erase_if(workers_, [](const Worker& worker) { return worker.finished->load(); });
    auto finished = std::make_shared<std::atomic<bool>>(false);
    auto work = [this, generation, latest = latest_, alive = lifetime_.weak(),
                 images = std::move(images), options = std::move(options)] {
        if (*latest != generation)
            return;
        const auto workload = exporting::upscaleWorkload(images, options);
        const auto seconds = workload.tiles > 0 && tileSeconds_ ? tileSeconds_() : std::nullopt;
        std::string text = upscale::upscaleEstimateText(workload, seconds);
        mainThread_.post([this, generation, latest, alive, text = std::move(text)]() mutable {
            if (alive.expired() || *latest != generation)
                return;
            text_ = std::move(text);
            changed_.notify();
        });
    };
    workers_.push_back({finished, std::jthread([work = std::move(work), finished] {
                            work();
                            *finished = true;
                        })});
}

} // namespace lumivesper::shell
