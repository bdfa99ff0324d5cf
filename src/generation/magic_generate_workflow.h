#pragma once

#include "document/app_state.h"
#include "generation/generated_image.h"
#include "generation/image_generation_service.h"
#include "generation/magic_generate_tables.h"
#include "platform/main_thread.h"
#include "platform/observer_list.h"

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace lumivesper::settings {
class Defaults;
}

namespace lumivesper::generation {

// How the last run ended; `none` before any run and while one goes on.
enum class GenerationOutcome { none, succeeded, cancelled, failed };

// What the sheet shows; changed on the main thread only.
struct MagicGenerateState {
    std::string prompt;
    std::string size = defaultGenerationSize;
    int tweenCount = 3;
    bool isGenerating = false;
    bool isCancelling = false;
    double progress = 0;
    std::string progressMessage;
    std::optional<std::string> errorMessage;
    GenerationOutcome outcome = GenerationOutcome::none;
    std::optional<std::filesystem::path> startingImageURL;
    std::optional<Bytes> startingImageData;
    std::optional<Bytes> livePreviewData;
    // The latest picture of each phase row, by phase id, for a strip of the day as it grows.
    std::map<std::string, Bytes> phasePreviews;
    // Kept for a server-side job protocol that nothing here speaks; no run writes them.
    std::optional<std::string> detectedEvolutionType;
    std::optional<double> detectedEvolutionIntensity;
    int connectionAttempt = 0;
    bool isReconnecting = false;
    std::set<std::string> receivedPhases;
    std::map<std::string, PhaseStatus> phaseStatus;
    GenerationMode mode = GenerationMode::relight;
    SmoothnessPreset smoothness = SmoothnessPreset::natural;
    bool showAdvanced = false;
    std::string model = magicGenerateModel;
};

// The logic behind "Create Dynamic Wallpaper": from a prompt, a starting image or both it empties
// the document, has a day of key images made, saves them to a temporary folder at their sun
// positions, installs them in `appState` as one undo step and adds the in-between frames.
//
// Used on the main thread. The run itself works on a thread of its own and reaches the document
// and this state only through `mainThread`; replies for a run that has been superseded, or for a
// workflow that has gone, are dropped. Destroying the workflow cancels its run and waits for it.
class MagicGenerateWorkflow {
public:
    // `appState`, `service`, `mainThread` and `defaults` must outlive the workflow. `onCancel`
    // closes the sheet; it runs after a successful run.
    MagicGenerateWorkflow(document::AppState& appState, const ImageGenerationService& service,
                          platform::MainThread& mainThread, settings::Defaults& defaults,
                          std::function<void()> onCancel);
    ~MagicGenerateWorkflow();
    MagicGenerateWorkflow(const MagicGenerateWorkflow&) = delete;
    MagicGenerateWorkflow& operator=(const MagicGenerateWorkflow&) = delete;

    const MagicGenerateState& state() const { return state_; }
    [[nodiscard]] platform::Subscription observe(std::function<void()> observer) {
        return changed_.subscribe(std::move(observer));
    }

    // ---- What the user sets ----
    void setPrompt(std::string prompt);
    // Empty prompt: the suggestion alone; otherwise the trimmed prompt, ", " and the suggestion.
    void appendMood(const std::string& suggestion);
    void setSize(std::string value);
    void setTweenCount(int count);
    void setSmoothness(SmoothnessPreset preset); // also sets the tween count
    // "Generate a New Scene" starts from the prompt alone: the starting image is put aside, and
    // comes back when the user returns to "Relight My Image".
    void setMode(GenerationMode mode);
    void setShowAdvanced(bool show);
    void setModel(std::string model);
    // Reads the file; an unreadable one leaves "Failed to load starting image." and no image.
    bool setStartingImage(const std::filesystem::path& file);
    void clearStartingImage();
    // The starting image's bytes turned out to be no picture: it goes, with the same message as
    // an unreadable file.
    void rejectStartingImage();

    // ---- What the sheet shows ----
    bool canGenerate() const;
    bool isConfigured() const { return service_.isConfigured(); }
    // The notice for a provider model without a key; none for the shipped model.
    std::optional<std::string> configurationNotice() const;
    std::string generateButtonTitle() const; // "Create Wallpaper" or "Cancelling..."
    std::optional<std::string> reconnectingLine() const;
    std::optional<std::string> evolutionLine() const;

    // ---- Actions ----
    void startGeneration();
    void cancelGeneration();

    // A run has started and has not yet reported how it ended. The proxy route clears
    // `isGenerating` when the key images are in, while its tweens are still being made.
    bool isRunning() const { return currentRun_ > 0 && state_.outcome == GenerationOutcome::none; }
    // Waits for the run's thread once its end has been reported; nothing of it is left in
    // flight afterwards. Must not be called while the run still goes on.
    void waitForRunToEnd();

    // Where runs keep their files; tests point these at a folder of their own.
    std::filesystem::path temporaryRoot;
    std::filesystem::path directRouteFolder;

private:
    struct RunInputs {
        int run = 0;
        std::string prompt;
        std::string model;
        std::string size;
        std::string aspectRatio;
        std::string sceneHint;
        int tweenCount = 0;
        std::optional<Bytes> startingImage;
        std::optional<std::filesystem::path> startingImageURL;
        std::filesystem::path temporaryRoot;
    };

    void beginRun(RunInputs& inputs);
    void runProxyRoute(const RunInputs& inputs, std::stop_token stop);
    void runDirectRoute(const RunInputs& inputs, std::stop_token stop);
    // Tweens after the keys when asked for; the document grows after each transition.
    std::vector<document::WallpaperImage>
    runTweenStep(const RunInputs& inputs, const std::vector<document::WallpaperImage>& keys,
                 std::stop_token stop);
    Bytes directBaseFrame(const RunInputs& inputs, const std::filesystem::path& folder,
                          std::stop_token stop);

    // Runs `work` on the main thread if the workflow still exists and `run` is still current.
    void post(int run, std::function<void()> work);
    void setPhaseStatus(const std::string& id, PhaseStatus status);
    // The phase's picture arrived: the live preview and, for a row of the table, its status.
    void showPhasePicture(const std::string& id, const Bytes& bytes);
    void notify() { changed_.notify(); }

    document::AppState& appState_;
    const ImageGenerationService& service_;
    platform::MainThread& mainThread_;
    settings::Defaults& defaults_;
    std::function<void()> onCancel_;
    MagicGenerateState state_;
    // The starting image while "Generate a New Scene" is chosen.
    std::optional<std::filesystem::path> parkedImageURL_;
    std::optional<Bytes> parkedImageData_;
    int currentRun_ = 0;
    std::jthread generationTask_;
    std::shared_ptr<char> alive_ = std::make_shared<char>();
    platform::ObserverList<> changed_;
};

} // namespace lumivesper::generation
