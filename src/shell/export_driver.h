#pragma once

#include "document/wallpaper_mode.h"
#include "export/export_options.h"
#include "export/heic_frame.h"
#include "platform/main_thread.h"
#include "platform/observer_list.h"
#include "shell/export_estimate.h"
#include "shell/export_frame_status.h"
#include "shell/lifetime_token.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace lumivesper::document {
class AppState;
}
namespace lumivesper::platform {
class Dialogs;
}
namespace lumivesper::upscale {
class ImageUpscalingTool;
}

namespace lumivesper::shell {

class AppUIState;

// What the export sheet decided, reduced to what the driver needs.
struct ExportSettings {
    bool upscaleEnabled = true;
    bool keepPreprocessedFrames = false;
    // Builds the preprocessing configuration once the upscaler exists (none when it could not be
    // made or upscaling is off); none means the source files go straight to the encoder.
    std::function<std::optional<exporting::HeicPreprocessConfig>(
        std::shared_ptr<upscale::ImageUpscalingTool>)>
        makeConfig;
    int quality = exporting::defaultQuality; // the encoder's, 0 to 100
};

// The driver's settings for an export with the sheet's options.
ExportSettings exportSettings(const exporting::HeicExportOptions& options);

// The export's state that the sheet and the progress view show. Changes on the main thread only.
struct ExportProgressState {
    bool isExportingHeic = false;
    double exportProgress = 0;
    std::string exportMessage;
    std::vector<ExportFrameInfo> exportFrames;
    bool hasExportTask = false;
};

// Runs an export of the document on a worker thread: the destination panel, the console lines,
// the upscaler, the generator, progress parsed into frame statuses, and the closing message.
class ExportDriver {
public:
    using UpscalerFactory = std::function<std::shared_ptr<upscale::ImageUpscalingTool>()>;
    using Generator = std::function<void(
        const std::vector<document::WallpaperImage>& images, const std::filesystem::path& output,
        document::WallpaperMode mode, int quality,
        const std::optional<exporting::HeicPreprocessConfig>& config,
        const exporting::ProgressCallback& progress, std::stop_token stop)>;

    // The real upscaler (the ONNX tile upscaler) and the real generator.
    static UpscalerFactory standardUpscalerFactory();
    static Generator standardGenerator();

    ExportDriver(
        document::AppState& appState, AppUIState& uiState, platform::Dialogs& dialogs,
        platform::MainThread& mainThread, UpscalerFactory makeUpscaler, Generator generator,
        UpscaleEstimator::TileSeconds tileSeconds = UpscaleEstimator::standardTileSeconds());
    ~ExportDriver(); // stops any running export and waits for it to reach its next check
    ExportDriver(const ExportDriver&) = delete;
    ExportDriver& operator=(const ExportDriver&) = delete;

    // Asks for the destination, then runs the export with the sheet's options (or the given
    // settings). Nothing happens while an export runs.
    void startExport();
    void startExport(ExportSettings settings);
    // The sheet opens with a clean progress state.
    void resetProgress();
    // The part after the panel: from a chosen destination.
    void exportTo(const std::filesystem::path& destination, ExportSettings settings);
    void cancelExport();

    const ExportProgressState& state() const { return state_; }

    // The upscaling estimate of the document as it stands, with `options`; the text arrives in
    // upscaleEstimator().
    void requestUpscaleEstimate(const exporting::HeicExportOptions& options);
    UpscaleEstimator& upscaleEstimator() { return estimator_; }
    [[nodiscard]] platform::Subscription observe(std::function<void()> observer) {
        return changed_.subscribe(std::move(observer));
    }

private:
    struct Task;
    void run(std::shared_ptr<Task> task, std::vector<document::WallpaperImage> images,
             document::WallpaperMode mode, std::filesystem::path destination,
             ExportSettings settings);
    // Runs `change` on the main thread if `task` is still the export shown.
    void onMainThread(const std::shared_ptr<Task>& task, std::function<void()> change);
    void finish(const std::shared_ptr<Task>& task, std::string message);

    document::AppState& appState_;
    AppUIState& uiState_;
    platform::Dialogs& dialogs_;
    platform::MainThread& mainThread_;
    UpscalerFactory makeUpscaler_;
    Generator generator_;
    ExportProgressState state_;
    UpscaleEstimator estimator_;
    std::shared_ptr<Task> current_;
    struct Worker {
        std::shared_ptr<Task> task;
        std::jthread thread;
    };
    std::vector<Worker> workers_;
    platform::ObserverList<> changed_;
    LifetimeToken lifetime_;
};

// The failure text of an export, by the error's type.
std::string exportFailureMessage(const std::exception& error);

} // namespace lumivesper::shell
