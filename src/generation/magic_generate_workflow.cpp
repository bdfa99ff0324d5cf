#include "generation/magic_generate_workflow.h"

#include "generation/client_side_image_generator.h"
#include "generation/timeline_document.h"
#include "platform/cancellation.h"
#include "platform/console.h"
#include "platform/image_io.h"
#include "platform/paths.h"
#include "platform/task_group.h"
#include "platform/uuid.h"
#include "settings/server_config.h"

#include <cassert>
#include <fstream>
#include <iterator>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace lumivesper::generation {

namespace fs = std::filesystem;
using document::WallpaperImage;
using document::WallpaperMode;

namespace {

constexpr const char* startingImageFailure = "Failed to load starting image.";
constexpr std::string_view localPrefix = "local/";

std::string trimmed(const std::string& text) {
    constexpr const char* space = " \t\r\n\v\f";
    const auto first = text.find_first_not_of(space);
    if (first == std::string::npos)
        return {};
    return text.substr(first, text.find_last_not_of(space) - first + 1);
}

std::string withoutLocalPrefix(std::string model) {
    for (auto at = model.find(localPrefix); at != std::string::npos; at = model.find(localPrefix))
        model.erase(at, localPrefix.size());
    return model;
}

bool isPng(const Bytes& bytes) {
    static constexpr unsigned char signature[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    return bytes.size() >= sizeof signature &&
           std::equal(std::begin(signature), std::end(signature), bytes.begin());
}

fs::path makeFolder(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error || !fs::is_directory(folder))
        throw std::runtime_error("Could not create the folder " + folder.string() +
                                 (error ? ": " + error.message() : std::string()));
    return folder;
}

std::string formatDegrees(double value) {
    std::ostringstream text;
    text << value;
    return text.str();
}

} // namespace

MagicGenerateWorkflow::MagicGenerateWorkflow(document::AppState& appState,
                                             const ImageGenerationService& service,
                                             platform::MainThread& mainThread,
                                             settings::Defaults& defaults,
                                             std::function<void()> onCancel)
    : temporaryRoot(platform::temporaryDirectory()),
      directRouteFolder(platform::dataHome() / "Lumivesper" / "Generations"), appState_(appState),
      service_(service), mainThread_(mainThread), defaults_(defaults),
      onCancel_(std::move(onCancel)) {}

MagicGenerateWorkflow::~MagicGenerateWorkflow() {
    // No request left in flight and no file half-written once the sheet has gone.
    if (generationTask_.joinable()) {
        generationTask_.request_stop();
        generationTask_.join();
    }
}

// ---- What the user sets ----

void MagicGenerateWorkflow::setPrompt(std::string prompt) {
    state_.prompt = std::move(prompt);
    notify();
}

void MagicGenerateWorkflow::appendMood(const std::string& suggestion) {
    const std::string current = trimmed(state_.prompt);
    setPrompt(current.empty() ? suggestion : current + ", " + suggestion);
}

void MagicGenerateWorkflow::setSize(std::string value) {
    state_.size = std::move(value);
    notify();
}

void MagicGenerateWorkflow::setTweenCount(int count) {
    state_.tweenCount = std::max(0, count);
    notify();
}

void MagicGenerateWorkflow::setSmoothness(SmoothnessPreset preset) {
    state_.smoothness = preset;
    setTweenCount(tweenCount(preset));
}

void MagicGenerateWorkflow::setMode(GenerationMode mode) {
    if (mode == state_.mode)
        return;
    state_.mode = mode;
    if (mode == GenerationMode::generate) {
        parkedImageURL_ = std::exchange(state_.startingImageURL, std::nullopt);
        parkedImageData_ = std::exchange(state_.startingImageData, std::nullopt);
    } else if (parkedImageData_) {
        state_.startingImageURL = std::exchange(parkedImageURL_, std::nullopt);
        state_.startingImageData = std::exchange(parkedImageData_, std::nullopt);
    }
    notify();
}

void MagicGenerateWorkflow::setShowAdvanced(bool show) {
    state_.showAdvanced = show;
    notify();
}

void MagicGenerateWorkflow::setModel(std::string model) {
    state_.model = std::move(model);
    notify();
}

bool MagicGenerateWorkflow::setStartingImage(const fs::path& file) {
    auto bytes = readFileBytes(file);
    if (bytes && bytes->empty())
        bytes.reset(); // an empty file is no picture to relight
    if (!bytes) {
        state_.errorMessage = startingImageFailure;
        notify();
        return false;
    }
    state_.startingImageURL = file;
    state_.startingImageData = std::move(bytes);
    state_.errorMessage.reset();
    notify();
    return true;
}

void MagicGenerateWorkflow::clearStartingImage() {
    state_.startingImageURL.reset();
    state_.startingImageData.reset();
    parkedImageURL_.reset();
    parkedImageData_.reset();
    notify();
}

void MagicGenerateWorkflow::rejectStartingImage() {
    state_.errorMessage = startingImageFailure;
    clearStartingImage();
}

// ---- What the sheet shows ----

bool MagicGenerateWorkflow::canGenerate() const {
    const std::string p = trimmed(state_.prompt);
    const std::string m = trimmed(state_.model);
    if (m.empty() || (p.empty() && !state_.startingImageData))
        return false;
    if (!state_.model.starts_with(localPrefix) && !service_.isConfigured())
        return false;
    return !state_.isGenerating;
}

std::optional<std::string> MagicGenerateWorkflow::configurationNotice() const {
    if (state_.model.starts_with(localPrefix) || service_.isConfigured())
        return std::nullopt;
    return "Set OPENAI_API_KEY or GEMINI_API_KEY in your environment to enable generation.";
}

std::string MagicGenerateWorkflow::generateButtonTitle() const {
    return state_.isCancelling ? "Cancelling..." : "Create Wallpaper";
}

std::optional<std::string> MagicGenerateWorkflow::reconnectingLine() const {
    if (!state_.isReconnecting)
        return std::nullopt;
    return "Reconnecting (attempt " + std::to_string(state_.connectionAttempt) + "/5)...";
}

std::optional<std::string> MagicGenerateWorkflow::evolutionLine() const {
    if (!state_.detectedEvolutionType)
        return std::nullopt;
    std::string line = "Evolution detected: " + *state_.detectedEvolutionType;
    if (state_.detectedEvolutionIntensity)
        line += " (" + formatDegrees(*state_.detectedEvolutionIntensity) + ")";
    return line;
}

// ---- Actions ----

void MagicGenerateWorkflow::startGeneration() {
    RunInputs inputs;
    inputs.prompt = trimmed(state_.prompt);
    inputs.model = trimmed(state_.model);
    inputs.size = state_.size;
    inputs.aspectRatio = aspectRatioForSize(state_.size);
    inputs.startingImage = state_.startingImageData;
    inputs.startingImageURL = state_.startingImageURL;
    if (!inputs.prompt.empty() && inputs.startingImage)
        inputs.sceneHint = "Scene description: " + inputs.prompt + "\n";
    if ((inputs.prompt.empty() && !inputs.startingImage) || inputs.model.empty())
        return;
    inputs.tweenCount = state_.tweenCount;
    inputs.temporaryRoot = temporaryRoot;

    beginRun(inputs);
    const bool proxy = state_.model.starts_with(localPrefix);
    generationTask_ = std::jthread([this, inputs = std::move(inputs), proxy](std::stop_token stop) {
        if (proxy)
            runProxyRoute(inputs, stop);
        else
            runDirectRoute(inputs, stop);
    });
}

void MagicGenerateWorkflow::cancelGeneration() {
    if (!generationTask_.joinable())
        return;
    generationTask_.request_stop();
    if (state_.isGenerating) {
        state_.isCancelling = true;
        notify();
    }
}

void MagicGenerateWorkflow::waitForRunToEnd() {
    assert(!isRunning());
    if (generationTask_.joinable())
        generationTask_.join();
}

void MagicGenerateWorkflow::beginRun(RunInputs& inputs) {
    state_.isGenerating = true;
    state_.isCancelling = false;
    state_.progress = 0;
    state_.progressMessage = "Preparing...";
    state_.errorMessage.reset();
    state_.outcome = GenerationOutcome::none;
    state_.phaseStatus.clear();
    state_.phasePreviews.clear();
    state_.livePreviewData.reset();
    for (const auto& phase : timeOfDayPhases)
        state_.phaseStatus[std::string(phase.id)] = PhaseStatus::pending;
    appState_.setLastMagicSettings(inputs.prompt, state_.size, state_.tweenCount,
                                   appState_.lastMagicStartingImageFileName());

    // A run still going is superseded: stopped, and its replies dropped by their run number.
    if (generationTask_.joinable()) {
        generationTask_.request_stop();
        generationTask_.join();
    }
    inputs.run = ++currentRun_;

    // The old document goes now; the undo step of a finished run brings it back.
    appState_.beginUndoBatch("Generate Timeline");
    appState_.applyGeneratedImages({}, WallpaperMode::time, true);
    notify();
}

void MagicGenerateWorkflow::post(int run, std::function<void()> work) {
    mainThread_.post([this, alive = std::weak_ptr<char>(alive_), run, work = std::move(work)] {
        if (alive.expired() || run != currentRun_)
            return;
        work();
        notify();
    });
}

void MagicGenerateWorkflow::setPhaseStatus(const std::string& id, PhaseStatus status) {
    if (findPhase(id))
        state_.phaseStatus[id] = status;
}

void MagicGenerateWorkflow::showPhasePicture(const std::string& id, const Bytes& bytes) {
    state_.livePreviewData = bytes;
    if (findPhase(id))
        state_.phasePreviews[id] = bytes;
    setPhaseStatus(id, PhaseStatus::completed);
}

std::vector<WallpaperImage>
MagicGenerateWorkflow::runTweenStep(const RunInputs& inputs,
                                    const std::vector<WallpaperImage>& keys, std::stop_token stop) {
    if (inputs.tweenCount <= 0)
        return keys;
    TweenStepReport report;
    report.status = [this, run = inputs.run](const std::string& message, double progress) {
        post(run, [this, message, progress] {
            state_.progressMessage = message;
            state_.progress = progress;
        });
    };
    report.grown = [this, run = inputs.run](const std::vector<WallpaperImage>& images) {
        post(run, [this, images] { appState_.applyGeneratedImages(images, std::nullopt, false); });
    };
    auto images =
        addTweens(keys, inputs.tweenCount, inputs.temporaryRoot / "LumivesperTweens", stop, report);
    post(inputs.run,
         [this, images] { appState_.applyGeneratedImages(images, std::nullopt, false); });
    return images;
}

void MagicGenerateWorkflow::runProxyRoute(const RunInputs& inputs, std::stop_token stop) {
    const int run = inputs.run;
    try {
        platform::throwIfCancelled(stop);
        const fs::path folder = makeFolder(inputs.temporaryRoot / "LumivesperGenerated" /
                                           platform::Uuid::generate().toString());

        // The plain default address, not the user's custom server setting.
        ClientSideImageGenerator generator(settings::defaultServerURL(), defaults_);
        generator.onProgress = [this, run](int completed, int total, const std::string& message) {
            post(run, [this, completed, total, message] {
                state_.progress = static_cast<double>(completed) / static_cast<double>(total);
                state_.progressMessage = message;
                platform::consoleLine("📊 Progress: " + std::to_string(completed) + "/" +
                                      std::to_string(total) + " - " + message);
            });
        };
        generator.onPhaseStarted = [this, run](const std::string& name) {
            post(run, [this, name] { setPhaseStatus(name, PhaseStatus::inProgress); });
        };
        generator.onImageGenerated = [this, run](const Bytes& bytes, const std::string& name) {
            post(run, [this, bytes, name] {
                showPhasePicture(name, bytes);
                platform::consoleLine("🖼️  Live preview updated: " + name);
            });
        };

        platform::consoleLine("🎨 Starting client-side generation: '" + inputs.prompt +
                              "', model: " + inputs.model +
                              ", hasReference: " + (inputs.startingImage ? "true" : "false"));
        const auto generated = generator.generateTimeline(
            inputs.prompt, withoutLocalPrefix(inputs.model), inputs.startingImage, stop);
        platform::consoleLine(
            "✅ Client-side generation complete: " + std::to_string(generated.size()) + " images");

        std::vector<WallpaperImage> keys;
        for (std::size_t i = 0; i < generated.size(); ++i) {
            keys.push_back(saveKeyImage(generated[i].data, i, folder));
            post(run, [this, bytes = generated[i].data, id = std::string(keyImagePhase(i).id)] {
                showPhasePicture(id, bytes);
            });
        }

        // The undo step closes here, before any tween exists; tweens join the document without
        // a step of their own, so undoing the generation takes them too.
        post(run, [this, keys, tweens = inputs.tweenCount] {
            appState_.applyGeneratedImages(keys, std::nullopt, true);
            appState_.endUndoBatch();
            state_.isGenerating = false;
            state_.progress = 1.0;
            state_.progressMessage = "Complete!";
            platform::consoleLine("✅ Timeline saved: " + std::to_string(keys.size()) + " images");
            if (tweens > 0)
                state_.progressMessage = "Generating tweens...";
        });
        runTweenStep(inputs, keys, stop);
        post(run, [this] {
            state_.isCancelling = false;
            state_.outcome = GenerationOutcome::succeeded;
            if (onCancel_)
                onCancel_();
        });
    } catch (const platform::CancellationError&) {
        // The batch stays open and the document empty: no undo step exists for this run.
        post(run, [this] {
            state_.isGenerating = false;
            state_.isCancelling = false;
            state_.progressMessage = "Cancelled";
            state_.outcome = GenerationOutcome::cancelled;
            platform::consoleLine("⚠️  Generation cancelled by user");
        });
    } catch (const std::exception& failure) {
        post(run, [this, description = std::string(failure.what())] {
            state_.errorMessage = description;
            state_.isGenerating = false;
            state_.isCancelling = false;
            state_.progressMessage = "Failed";
            state_.outcome = GenerationOutcome::failed;
            platform::consoleLine("❌ Generation error: " + description);
        });
    }
}

Bytes MagicGenerateWorkflow::directBaseFrame(const RunInputs& inputs, const fs::path& folder,
                                             std::stop_token stop) {
    const TimeOfDayPhase& first = timeOfDayPhases.front();
    if (!inputs.startingImage) {
        post(inputs.run, [this, label = std::string(first.label)] {
            state_.progressMessage = "Generating " + label;
            setPhaseStatus(std::string(timeOfDayPhases.front().id), PhaseStatus::inProgress);
        });
        return service_
            .generateImage(std::string(baseFramePromptHint) + "\n\n" + inputs.prompt, inputs.model,
                           inputs.aspectRatio, std::nullopt, std::string(consistencySystemPrompt),
                           inputs.size, stop)
            .data;
    }
    post(inputs.run, [this] { state_.progressMessage = "Using starting image..."; });
    if (isPng(*inputs.startingImage))
        return *inputs.startingImage;
    // Other formats are decoded and written as PNG, which every provider takes.
    try {
        const fs::path original = folder / (".starting-" + platform::Uuid::generate().toString());
        writeFileAtomically(original, *inputs.startingImage);
        const fs::path converted = original.string() + ".png";
        platform::writePng(platform::loadImage(original), converted);
        auto bytes = readFileBytes(converted);
        std::error_code ignored;
        fs::remove(original, ignored);
        fs::remove(converted, ignored);
        if (bytes)
            return *bytes;
    } catch (const std::exception&) {
    }
    throw std::runtime_error(startingImageFailure);
}

void MagicGenerateWorkflow::runDirectRoute(const RunInputs& inputs, std::stop_token stop) {
    const int run = inputs.run;
    try {
        platform::throwIfCancelled(stop);
        const fs::path folder = makeFolder(directRouteFolder);
        const auto fileName = [](const TimeOfDayPhase& phase) {
            return "generated_" + std::string(phase.id) + ".png";
        };

        const Bytes base = directBaseFrame(inputs, folder, stop);
        const std::size_t phaseCount = timeOfDayPhases.size();
        std::vector<std::optional<WallpaperImage>> made(phaseCount);
        std::mutex madeMutex;
        std::size_t finished = 0;
        // Each finished phase shows at once and the document grows by it.
        const auto finish = [&](std::size_t index, const Bytes& bytes) {
            const TimeOfDayPhase& phase = timeOfDayPhases[index];
            WallpaperImage image = saveImageAtPhase(bytes, fileName(phase), phase, folder);
            std::vector<WallpaperImage> soFar;
            double progress = 0;
            {
                std::lock_guard lock(madeMutex);
                made[index] = std::move(image);
                ++finished;
                progress = static_cast<double>(finished) / static_cast<double>(phaseCount);
                for (const auto& entry : made)
                    if (entry)
                        soFar.push_back(*entry);
            }
            post(run, [this, bytes, id = std::string(phase.id), label = std::string(phase.label),
                       progress, soFar = std::move(soFar)] {
                showPhasePicture(id, bytes);
                state_.progressMessage = "Generated " + label;
                state_.progress = progress;
                appState_.applyGeneratedImages(soFar, std::nullopt, true);
            });
        };
        finish(0, base);

        platform::forEachBounded(
            phaseCount - 1, maxConcurrentGenerations, stop,
            [&](std::size_t item, std::stop_token token) {
                platform::throwIfCancelled(token);
                const TimeOfDayPhase& phase = timeOfDayPhases[item + 1];
                post(run, [this, id = std::string(phase.id)] {
                    setPhaseStatus(id, PhaseStatus::inProgress);
                });
                const std::string prompt =
                    inputs.sceneHint +
                    "Using the reference image above, relight the exact same scene for " +
                    std::string(phase.label) + ".\nSun altitude: " + formatDegrees(phase.altitude) +
                    "°, azimuth: " + formatDegrees(phase.azimuth) +
                    "°.\nKeep composition and all objects identical. Only lighting and allowed "
                    "sky/celestial changes may vary.";
                const auto image = service_.generateImage(
                    prompt, inputs.model, inputs.aspectRatio, base,
                    std::string(consistencySystemPrompt), inputs.size, token);
                finish(item + 1, image.data);
            });

        std::vector<WallpaperImage> keys;
        for (auto& entry : made)
            keys.push_back(std::move(*entry));
        auto images = runTweenStep(inputs, keys, stop);
        post(run, [this, images = std::move(images)] {
            appState_.applyGeneratedImages(images, std::nullopt, true);
            appState_.endUndoBatch();
            state_.isGenerating = false;
            state_.isCancelling = false;
            state_.progress = 1.0;
            state_.progressMessage = "Generation complete!";
            state_.outcome = GenerationOutcome::succeeded;
            if (onCancel_)
                onCancel_();
        });
    } catch (const platform::CancellationError&) {
        post(run, [this] {
            appState_.endUndoBatch();
            state_.isGenerating = false;
            state_.isCancelling = false;
            state_.progressMessage = "Generation cancelled.";
            state_.outcome = GenerationOutcome::cancelled;
        });
    } catch (const std::exception& failure) {
        post(run, [this, description = std::string(failure.what())] {
            appState_.endUndoBatch();
            state_.errorMessage = description;
            state_.isGenerating = false;
            state_.isCancelling = false;
            state_.outcome = GenerationOutcome::failed;
        });
    }
}

} // namespace lumivesper::generation
