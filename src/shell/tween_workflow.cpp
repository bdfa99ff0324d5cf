#include "shell/tween_workflow.h"

#include "document/app_state.h"
#include "document/timeline.h"
#include "export/tween_generator.h"
#include "platform/cancellation.h"
#include "platform/console.h"
#include "platform/image_io.h"
#include "platform/main_thread.h"
#include "shell/app_ui_state.h"

#include <algorithm>
#include <exception>
#include <memory>

namespace lumivesper::shell {

using document::WallpaperImage;
using document::WallpaperMode;

namespace {

bool namesFile(const std::optional<std::filesystem::path>& path) {
    std::error_code error;
    return path && std::filesystem::exists(*path, error);
}

std::string baseName(const WallpaperImage& source, const WallpaperImage& target) {
    std::string name = source.fileName + "_to_" + target.fileName;
    std::replace(name.begin(), name.end(), '.', '_');
    return name;
}

std::vector<WallpaperImage> keyImages(const std::vector<WallpaperImage>& images) {
    std::vector<WallpaperImage> keys;
    std::copy_if(images.begin(), images.end(), std::back_inserter(keys),
                 [](const WallpaperImage& image) { return !image.isTween; });
    return keys;
}

} // namespace

std::optional<TweenTarget> nextKeyImage(const std::vector<WallpaperImage>& images,
                                        const document::Uuid& imageId) {
    const auto found = std::find_if(images.begin(), images.end(),
                                    [&](const WallpaperImage& image) { return image.id == imageId; });
    if (found == images.end() || found->isTween)
        return std::nullopt;
    const auto index = static_cast<std::size_t>(found - images.begin());
    if (index + 1 == images.size()) {
        const auto first = std::find_if(images.begin(), images.end(), [&](const auto& image) {
            return !image.isTween && image.id != imageId;
        });
        if (first == images.end())
            return std::nullopt;
        return TweenTarget{*first, images.size()};
    }
    if (images[index + 1].isTween)
        return std::nullopt; // its run is there already
    return TweenTarget{images[index + 1], index + 1};
}

bool canGenerateTweens(const std::vector<WallpaperImage>& images, const document::Uuid& imageId) {
    return nextKeyImage(images, imageId).has_value();
}

TweenWorkflow::TweenWorkflow(document::AppState& appState, AppUIState& uiState,
                             platform::MainThread& mainThread, std::filesystem::path workRoot)
    : appState_(appState), uiState_(uiState), mainThread_(mainThread),
      workRoot_(workRoot.empty() ? std::filesystem::temp_directory_path() / "LumivesperTweens"
                                 : std::move(workRoot)) {
    uiSubscription_ = uiState_.observe([this] { consumeAutoTweenTrigger(); });
}

TweenWorkflow::~TweenWorkflow() = default;

std::optional<WallpaperImage> TweenWorkflow::targetImage() const {
    if (!source_)
        return std::nullopt;
    if (auto target = nextKeyImage(appState_.images(), source_->id))
        return target->image;
    return std::nullopt;
}

std::string TweenWorkflow::explanation() const {
    return "Creates " + std::to_string(tweenCount_) + " interpolated frame" +
           (tweenCount_ == 1 ? "" : "s") +
           (isAutoMode_ ? " between each key image and the next one (wraps end to start)."
                        : " between the selected image and the next one.");
}

bool TweenWorkflow::openFor(const document::Uuid& imageId) {
    if (!nextKeyImage(appState_.images(), imageId))
        return false;
    source_ = *appState_.image(imageId);
    isAutoMode_ = false;
    isSheetShown_ = true;
    failure_.clear();
    changed();
    return true;
}

bool TweenWorkflow::openAuto() {
    if (keyImages(appState_.images()).size() < 2)
        return false;
    source_.reset();
    isAutoMode_ = true;
    isSheetShown_ = true;
    failure_.clear();
    changed();
    return true;
}

void TweenWorkflow::consumeAutoTweenTrigger() {
    if (!uiState_.shouldTriggerAutoTween())
        return;
    openAuto();
    uiState_.setShouldTriggerAutoTween(false);
}

void TweenWorkflow::setTweenCount(int count) {
    count = std::max(count, 1);
    if (count == tweenCount_)
        return;
    tweenCount_ = count;
    changed();
}

void TweenWorkflow::cancel() {
    isSheetShown_ = false;
    isAutoMode_ = false;
    changed();
}

void TweenWorkflow::generate() {
    if (isGenerating_)
        return; // one run at a time; the sheet shows its progress
    if (isAutoMode_)
        generateAuto();
    else
        generateSingle();
}

void TweenWorkflow::generateSingle() {
    const auto target = source_ ? nextKeyImage(appState_.images(), source_->id) : std::nullopt;
    if (!target || !namesFile(source_->sourcePath)) {
        platform::consoleLine("Invalid source image for tween generation");
        return;
    }
    if (!namesFile(target->image.sourcePath)) {
        platform::consoleLine("Invalid target image for tween generation");
        return;
    }
    const auto folder = workRoot_ / document::Uuid::generate().toString();
    start(RunKind::single, {Pair{*source_, target->image, folder}}, target->insertionIndex);
}

void TweenWorkflow::generateAuto() {
    const auto keys = keyImages(appState_.images());
    if (keys.size() < 2) {
        isAutoMode_ = false;
        changed();
        return;
    }
    const auto folder = workRoot_ / document::Uuid::generate().toString();
    std::vector<Pair> pairs;
    for (std::size_t i = 0; i < keys.size(); ++i)
        pairs.push_back({keys[i], keys[(i + 1) % keys.size()], folder / keys[i].id.toString()});
    start(RunKind::automatic, std::move(pairs), 0);
}

void TweenWorkflow::start(RunKind kind, std::vector<Pair> pairs, std::size_t insertionIndex) {
    isGenerating_ = true;
    progress_ = 0;
    failure_.clear();
    changed();

    const int count = tweenCount_;
    auto alive = lifetime_.weak();
    auto post = [this, alive](std::function<void()> work) {
        mainThread_.post([alive, work = std::move(work)] {
            if (!alive.expired())
                work();
        });
    };
    worker_ = std::jthread([kind, pairs = std::move(pairs), count, insertionIndex, post,
                            this](std::stop_token stop) mutable {
        const exporting::TweenGenerator generator;
        const double total = static_cast<double>(std::max<std::size_t>(pairs.size() * count, 1));
        std::vector<PairFrames> frames;
        try {
            for (std::size_t i = 0; i < pairs.size(); ++i) {
                const auto& pair = pairs[i];
                if (!namesFile(pair.source.sourcePath) || !namesFile(pair.target.sourcePath))
                    throw exporting::TweenGeneratorError(
                        exporting::TweenGeneratorError::Case::imageLoadFailed);
                const auto done = static_cast<double>(i * count);
                PairFrames made;
                made.paths = generator.generateAndSaveTweens(
                    *pair.source.sourcePath, *pair.target.sourcePath, count, pair.folder,
                    baseName(pair.source, pair.target),
                    [&](int completed, int) {
                        const double fraction = (done + completed) / total;
                        post([this, fraction] {
                            progress_ = fraction;
                            changed();
                        });
                    },
                    stop);
                for (const auto& path : made.paths) {
                    std::shared_ptr<const platform::PixelImage> preview;
                    try {
                        preview = std::make_shared<const platform::PixelImage>(
                            platform::loadPreview(path));
                    } catch (const platform::ImageIoError&) {
                        // the record shows a placeholder; export reads the file itself
                    }
                    made.previews.push_back(std::move(preview));
                }
                frames.push_back(std::move(made));
            }
        } catch (const platform::CancellationError&) {
            return; // only when this workflow goes away: nobody is left to tell
        } catch (const exporting::TweenGeneratorError& error) {
            post([this, kind, text = error.description()] { fail(kind, text); });
            return;
        } catch (const std::exception& error) {
            post([this, kind, text = std::string(error.what())] { fail(kind, text); });
            return;
        }
        post([this, kind, pairs = std::move(pairs), frames = std::move(frames),
              insertionIndex]() mutable {
            finish(kind, pairs, std::move(frames), insertionIndex);
        });
    });
}

std::vector<WallpaperImage> TweenWorkflow::tweenRecords(const Pair& pair,
                                                        const PairFrames& frames) const {
    // The count the run was started with, whatever the sheet shows now.
    const int n = std::max(static_cast<int>(frames.paths.size()), 1);
    std::vector<WallpaperImage> records;
    for (std::size_t k = 0; k < frames.paths.size(); ++k) {
        WallpaperImage tween;
        tween.fileName = frames.paths[k].filename().string();
        tween.sourcePath = frames.paths[k];
        tween.thumbnail = frames.previews[k];
        tween.isTween = true;
        tween.parentId = pair.source.id;
        if (appState_.mode() == WallpaperMode::time) {
            const auto sun = document::interpolatedSunValues(pair.source, pair.target,
                                                             static_cast<int>(k) + 1, n);
            tween.altitude = sun.altitude;
            tween.azimuth = sun.azimuth;
            tween.timeOfDay = sun.timeOfDay;
        } else {
            tween.isLight = pair.source.isLight;
        }
        records.push_back(std::move(tween));
    }
    return records;
}

void TweenWorkflow::finish(RunKind kind, const std::vector<Pair>& pairs,
                           std::vector<PairFrames> frames, std::size_t insertionIndex) {
    if (kind == RunKind::single) {
        appState_.insertImages(tweenRecords(pairs.front(), frames.front()),
                               static_cast<std::ptrdiff_t>(insertionIndex), "Add Tweens");
    } else {
        // A regeneration: only the key images enter, each followed by its new run.
        std::vector<WallpaperImage> result;
        for (std::size_t i = 0; i < pairs.size(); ++i) {
            result.push_back(pairs[i].source);
            auto tweens = tweenRecords(pairs[i], frames[i]);
            std::move(tweens.begin(), tweens.end(), std::back_inserter(result));
        }
        appState_.replaceImages(std::move(result), "Auto Tween", true);
    }
    isGenerating_ = false;
    isSheetShown_ = false;
    isAutoMode_ = false;
    changed();
}

void TweenWorkflow::fail(RunKind kind, const std::string& description) {
    platform::consoleLine(
        (kind == RunKind::single ? "Tween generation failed: " : "Auto tween generation failed: ") +
        description);
    failure_ = description;
    isGenerating_ = false;
    isAutoMode_ = false;
    changed();
}

} // namespace lumivesper::shell
