#pragma once

#include "document/wallpaper_image.h"
#include "export/export_options.h"
#include "platform/main_thread.h"
#include "platform/observer_list.h"
#include "shell/lifetime_token.h"

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace lumivesper::shell {

// The upscaling estimate the export sheet shows before an export: the tile count of the document's
// frames under the sheet's options, and the time it takes at the tile time measured on this
// computer. Reading the frames' headers and the measurement happens on a worker; the text comes
// back through the main thread, and a newer request drops the result of an older one.
class UpscaleEstimator {
public:
    // The measured seconds per tile of the upscaler an export would make, or none; called off
    // the main thread.
    using TileSeconds = std::function<std::optional<double>()>;

    // The measurement of the installed model on this computer, from the tile-time cache.
    static TileSeconds standardTileSeconds();

    UpscaleEstimator(platform::MainThread& mainThread, TileSeconds tileSeconds);
    ~UpscaleEstimator(); // waits for the workers, which read only headers and one small file
    UpscaleEstimator(const UpscaleEstimator&) = delete;
    UpscaleEstimator& operator=(const UpscaleEstimator&) = delete;

    // Estimates for these images and options; with upscaling off the text is empty at once.
    void request(std::vector<document::WallpaperImage> images,
                 exporting::HeicExportOptions options);

    // The latest estimate; empty while none has arrived or upscaling is off.
    const std::string& text() const { return text_; }

    [[nodiscard]] platform::Subscription observe(std::function<void()> observer) {
        return changed_.subscribe(std::move(observer));
    }

private:
    platform::MainThread& mainThread_;
    TileSeconds tileSeconds_;
    std::string text_;
    std::shared_ptr<std::atomic<unsigned>> latest_ = std::make_shared<std::atomic<unsigned>>(0);
    struct Worker {
        std::shared_ptr<std::atomic<bool>> finished;
        std::jthread thread;
    };
    std::vector<Worker> workers_;
    platform::ObserverList<> changed_;
    LifetimeToken lifetime_;
};

} // namespace lumivesper::shell
