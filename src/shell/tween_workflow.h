#pragma once

#include "document/wallpaper_image.h"
#include "platform/observer_list.h"
#include "shell/lifetime_token.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace lumivesper::document {
class AppState;
}
namespace lumivesper::platform {
class MainThread;
}

namespace lumivesper::shell {

class AppUIState;

// Where a run of tweens after `image` goes: the key image it blends towards and the row the run
// is inserted at. None for a tween, for an image already followed by tweens, and for a document
// with no other key image. The last key image wraps round to the first one.
struct TweenTarget {
    document::WallpaperImage image;
    std::size_t insertionIndex = 0;
};
std::optional<TweenTarget> nextKeyImage(const std::vector<document::WallpaperImage>& images,
                                        const document::Uuid& imageId);
bool canGenerateTweens(const std::vector<document::WallpaperImage>& images,
                       const document::Uuid& imageId);

// The tween sheet's logic: opening it for one image or for the whole day, the count, the run on
// a worker thread with its progress, and the records it adds to the document. Main thread only.
// Cancelling closes the sheet but lets a started run finish: its frames still arrive.
class TweenWorkflow {
public:
    static constexpr int sliderMaximum = 20;

    // Runs write their frames under `workRoot` (a new folder per run); the default is
    // "LumivesperTweens" in the temporary directory.
    TweenWorkflow(document::AppState& appState, AppUIState& uiState,
                  platform::MainThread& mainThread, std::filesystem::path workRoot = {});
    // Stops a running blend at its next frame and waits for it; nothing reaches the document.
    ~TweenWorkflow();
    TweenWorkflow(const TweenWorkflow&) = delete;
    TweenWorkflow& operator=(const TweenWorkflow&) = delete;

    // ---- What the sheet shows ----
    bool isSheetShown() const { return isSheetShown_; }
    bool isAutoMode() const { return isAutoMode_; }
    const std::optional<document::WallpaperImage>& sourceImage() const { return source_; }
    std::optional<document::WallpaperImage> targetImage() const; // single mode
    int tweenCount() const { return tweenCount_; }
    bool isGenerating() const { return isGenerating_; }
    double progress() const { return progress_; }
    // "Creates 3 interpolated frames between the selected image and the next one." and the like.
    std::string explanation() const;
    // The last run's failure as the user reads it; empty when the last run did not fail.
    const std::string& failure() const { return failure_; }

    // ---- What the sheet and the library do ----
    // Opens the sheet for one image; false (and nothing changes) where it takes no tweens.
    bool openFor(const document::Uuid& imageId);
    // Opens the sheet for the whole day; false with fewer than two key images.
    bool openAuto();
    // Any positive count; the slider shows at most 20, the field takes more.
    void setTweenCount(int count);
    void generate();
    void cancel(); // closes the sheet; a started run goes on

    // Told after every change of what the sheet shows.
    [[nodiscard]] platform::Subscription observe(std::function<void()> observer) {
        return changed_.subscribe(std::move(observer));
    }

private:
    // One blend between two key images, as the worker needs it.
    struct Pair {
        document::WallpaperImage source;
        document::WallpaperImage target;
        std::filesystem::path folder;
    };
    // What a pair produced: each tween's file and display preview.
    struct PairFrames {
        std::vector<std::filesystem::path> paths;
        std::vector<std::shared_ptr<const platform::PixelImage>> previews;
    };
    enum class RunKind { single, automatic };

    void generateSingle();
    void generateAuto();
    void start(RunKind kind, std::vector<Pair> pairs, std::size_t insertionIndex);
    void finish(RunKind kind, const std::vector<Pair>& pairs, std::vector<PairFrames> frames,
                std::size_t insertionIndex);
    void fail(RunKind kind, const std::string& description);
    std::vector<document::WallpaperImage> tweenRecords(const Pair& pair,
                                                       const PairFrames& frames) const;
    void consumeAutoTweenTrigger();
    void changed() { changed_.notify(); }

    document::AppState& appState_;
    AppUIState& uiState_;
    platform::MainThread& mainThread_;
    std::filesystem::path workRoot_;

    bool isSheetShown_ = false;
    bool isAutoMode_ = false;
    std::optional<document::WallpaperImage> source_;
    int tweenCount_ = 3;
    bool isGenerating_ = false;
    double progress_ = 0;
    std::string failure_;

    platform::ObserverList<> changed_;
    platform::Subscription uiSubscription_;
    LifetimeToken lifetime_;
    std::jthread worker_; // last, so that it stops before the rest goes
};

} // namespace lumivesper::shell
