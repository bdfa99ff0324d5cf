#include "shell/export_driver.h"

#include "document/app_state.h"
#include "export/heic_generator.h"
#include "export/upscale/onnx_upscale_tool.h"
#include "export/upscale/upscale_error.h"
#include "platform/cancellation.h"
#include "platform/console.h"
#include "platform/dialogs.h"
#include "shell/app_ui_state.h"
#include "tools/process_runner_error.h"
#include "tools/tool_error.h"

#include <atomic>

namespace lumivesper::shell {

struct ExportDriver::Task {
    std::stop_source stop;
    std::atomic<bool> finished{false};
};

namespace {

std::string describe(const std::exception& error) {
    if (const auto* upscaleError = dynamic_cast<const upscale::UpscaleError*>(&error))
        return upscaleError->description();
    return error.what();
}

} // namespace

std::string exportFailureMessage(const std::exception& error) {
    if (const auto* toolError = dynamic_cast<const tools::ToolError*>(&error))
        return "Export failed: " + toolError->description();
    if (const auto* runnerError = dynamic_cast<const tools::ProcessRunnerError*>(&error)) {
        if (runnerError->kind() == tools::ProcessRunnerError::Kind::nonZeroExit)
            return "Export failed: AI tools could not process the images.";
        return "Export failed: AI tools are not available.";
    }
    // The generator's own descriptions stay on the console; the user gets the general text.
    return "Export failed. Please try again.";
}

ExportSettings exportSettings(const exporting::HeicExportOptions& options) {
    return {options.upscaleEnabled, options.keepPreprocessedFrames,
            [options](std::shared_ptr<upscale::ImageUpscalingTool> upscaler) {
                return exporting::makePreprocessConfig(options, std::move(upscaler));
            },
            options.quality};
}

ExportDriver::UpscalerFactory ExportDriver::standardUpscalerFactory() {
    return [] { return std::make_shared<upscale::OnnxUpscaleTool>(); };
}

ExportDriver::Generator ExportDriver::standardGenerator() {
    return [](const std::vector<document::WallpaperImage>& images,
              const std::filesystem::path& output, document::WallpaperMode mode, int quality,
              const std::optional<exporting::HeicPreprocessConfig>& config,
              const exporting::ProgressCallback& progress, std::stop_token stop) {
        exporting::HeicGenerator(exporting::encoderSettingsForQuality(quality))
            .generate(images, output, mode, config, progress, std::move(stop));
    };
}

ExportDriver::ExportDriver(document::AppState& appState, AppUIState& uiState,
                           platform::Dialogs& dialogs, platform::MainThread& mainThread,
                           UpscalerFactory makeUpscaler, Generator generator,
                           UpscaleEstimator::TileSeconds tileSeconds)
    : appState_(appState), uiState_(uiState), dialogs_(dialogs), mainThread_(mainThread),
      makeUpscaler_(std::move(makeUpscaler)), generator_(std::move(generator)),
      estimator_(mainThread, std::move(tileSeconds)) {}

ExportDriver::~ExportDriver() {
    // Every export still running stops at its next check (at most the frame being encoded), so
    // a quit waits for seconds, not for the rest of the export.
    for (auto& worker : workers_)
        worker.task->stop.request_stop();
    workers_.clear(); // joins
}

void ExportDriver::startExport() {
    startExport(exportSettings(uiState_.exportOptions()));
}

void ExportDriver::requestUpscaleEstimate(const exporting::HeicExportOptions& options) {
    estimator_.request(appState_.images(), options);
}

void ExportDriver::resetProgress() {
    if (state_.isExportingHeic)
        return;
    state_.exportProgress = 0;
    state_.exportMessage.clear();
    state_.exportFrames.clear();
    changed_.notify();
}

void ExportDriver::startExport(ExportSettings settings) {
    if (state_.isExportingHeic)
        return;
    platform::SavePanelSettings panel;
    panel.title = "Export Dynamic Wallpaper";
    panel.nameFieldStringValue = suggestedExportFileName(appState_.currentProjectPath());
    panel.filter = platform::FileFilter{"HEIC Image", {"heic"}};
    panel.directory = uiState_.lastExportDirectory();
    dialogs_.showSavePanel(std::move(panel),
                           [this, alive = lifetime_.weak(), settings = std::move(settings)](
                               std::filesystem::path destination) mutable {
                               if (!alive.expired())
                                   exportTo(destination, std::move(settings));
                           });
}

void ExportDriver::exportTo(const std::filesystem::path& destination, ExportSettings settings) {
    if (state_.isExportingHeic)
        return;
    uiState_.setLastExportDirectory(destination.parent_path());
    state_.isExportingHeic = true;
    state_.exportProgress = 0;
    state_.exportMessage = "Preparing export...";
    state_.exportFrames = pendingFrames(appState_.images());
    state_.hasExportTask = true;
    changed_.notify();

    // Threads of earlier exports that have ended are joined here, at no wait.
    std::erase_if(workers_, [](const Worker& worker) { return worker.task->finished.load(); });
    auto task = std::make_shared<Task>();
    current_ = task;
    // The document is copied now: edits made during the export do not reach it.
    workers_.push_back(
        {task, std::jthread([this, task, images = appState_.images(), mode = appState_.mode(),
                             destination, settings = std::move(settings)]() mutable {
             run(task, std::move(images), mode, std::move(destination), std::move(settings));
             task->finished = true;
         })});
}

void ExportDriver::onMainThread(const std::shared_ptr<Task>& task, std::function<void()> change) {
    mainThread_.post([this, alive = lifetime_.weak(), task, change = std::move(change)] {
        if (alive.expired() || current_ != task)
            return; // cancelled, or a later export is on screen
        change();
        changed_.notify();
    });
}

void ExportDriver::finish(const std::shared_ptr<Task>& task, std::string message) {
    onMainThread(task, [this, message = std::move(message)] {
        state_.isExportingHeic = false;
        state_.exportMessage = message;
        state_.hasExportTask = false;
        current_.reset();
    });
}

void ExportDriver::run(std::shared_ptr<Task> task, std::vector<document::WallpaperImage> images,
                       document::WallpaperMode mode, std::filesystem::path destination,
                       ExportSettings settings) {
    using platform::consoleLine;
    const std::stop_token stop = task->stop.get_token();
    consoleLine("=== EXPORT STARTED ===");
    consoleLine("Mode: " + std::string(document::rawValue(mode)));
    consoleLine("Images: " + std::to_string(images.size()));
    for (std::size_t i = 0; i < images.size(); ++i)
        consoleLine("[" + std::to_string(i) + "] " + images[i].fileName + " - sourcePath: " +
                    (images[i].sourcePath ? images[i].sourcePath->string() : "none"));
    consoleLine("Output: " + destination.string());

    std::shared_ptr<upscale::ImageUpscalingTool> upscaler;
    if (settings.upscaleEnabled) {
        onMainThread(task, [this] { state_.exportMessage = "Preparing ONNX upscaler..."; });
        try {
            upscaler = makeUpscaler_ ? makeUpscaler_() : nullptr;
        } catch (const std::exception& error) {
            finish(task, "Export failed: " + describe(error));
            return;
        }
    }

    std::optional<exporting::HeicPreprocessConfig> config;
    std::string message;
    try {
        platform::throwIfCancelled(stop);
        if (settings.makeConfig)
            config = settings.makeConfig(upscaler);
        auto progress = [this, task](int current, int total, const std::string& text) {
            onMainThread(task, [this, current, total, text] {
                state_.exportProgress =
                    total > 0 ? static_cast<double>(current) / static_cast<double>(total) : 0.0;
                state_.exportMessage = text;
                updateFrameStatuses(state_.exportFrames, text);
            });
        };
        generator_(images, destination, mode, settings.quality, config, progress, stop);
        consoleLine("=== EXPORT SUCCEEDED ===");
        message = settings.keepPreprocessedFrames && config
                      ? "Export complete! Preprocessed frames kept for reuse."
                      : "Export complete!";
    } catch (const platform::CancellationError&) {
        consoleLine("=== EXPORT CANCELLED ===");
        message = "Export cancelled";
    } catch (const std::exception& error) {
        consoleLine("=== EXPORT FAILED ===");
        consoleLine("Error: " + describe(error));
        message = exportFailureMessage(error);
    }
    exporting::removeTemporaryFrames(config);
    finish(task, std::move(message));
}

void ExportDriver::cancelExport() {
    if (current_)
        current_->stop.request_stop();
    current_.reset();
    state_.hasExportTask = false;
    state_.isExportingHeic = false;
    state_.exportMessage = "Export cancelled";
    state_.exportFrames.clear();
    changed_.notify();
}

} // namespace lumivesper::shell
