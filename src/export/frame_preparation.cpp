#include "export/heic_generator.h"
#include "export/heic_generator_error.h"
#include "export/heic_preprocessor.h"
#include "export/tween_generator.h"
#include "platform/cancellation.h"
#include "platform/console.h"
#include "platform/task_group.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <system_error>

namespace lumivesper::exporting {

namespace {

using document::WallpaperImage;
using platform::consoleLine;

// Each blend holds two decoded frames and its result: at 8K that is ~400 MB, so only a few run
// together. Results and their order are the same as with all of them at once.
constexpr std::size_t maxConcurrentTweenBlends = 2;

std::function<void()> removeUnlessKept(const HeicPreprocessSession& session) {
    if (session.keepFiles)
        return {};
    return [directory = session.directory] {
        std::error_code ignored;
        std::filesystem::remove_all(directory, ignored);
    };
}

std::optional<std::size_t> positionOf(const std::vector<WallpaperImage>& images,
                                      const document::Uuid& id) {
    for (std::size_t n = 0; n < images.size(); ++n)
        if (images[n].id == id)
            return n;
    return std::nullopt;
}

// The nearest key image from the tween at `position`, walking by `step` (-1 or +1) and wrapping
// around the ends once; none when the list holds no key image.
std::optional<std::size_t> nearestKey(const std::vector<WallpaperImage>& images,
                                      std::size_t position, int step) {
    const auto count = static_cast<std::ptrdiff_t>(images.size());
    for (std::ptrdiff_t k = 1; k < count; ++k) {
        // Wrap-around with the remainder of the dividend's sign, corrected when negative.
        auto index = (static_cast<std::ptrdiff_t>(position) + step * k) % count;
        if (index < 0)
            index += count;
        if (!images[index].isTween)
            return static_cast<std::size_t>(index);
    }
    return std::nullopt;
}

const HeicFrameSource* keyFrame(const HeicPreprocessSession& session, const document::Uuid& id) {
    for (const auto& frame : session.frames)
        if (frame.image.id == id)
            return &frame;
    return nullptr;
}

} // namespace

double tweenBlendFactor(const WallpaperImage& tween, const WallpaperImage& previous,
                        const WallpaperImage& next) {
    if (!tween.altitude || !previous.altitude || !next.altitude ||
        *previous.altitude == *next.altitude)
        return 0.5;
    const double t = (*tween.altitude - *previous.altitude) / (*next.altitude - *previous.altitude);
    return std::clamp(t, 0.0, 1.0);
}

std::vector<HeicFrameSource> regenerateTweens(const std::vector<WallpaperImage>& tweens,
                                              const std::vector<WallpaperImage>& allImages,
                                              const HeicPreprocessSession& keyFrames,
                                              const TweenGenerator& tweenGenerator,
                                              const HeicPreprocessConfig& config, int total,
                                              const ProgressCallback& progress,
                                              std::stop_token stop) {
    std::vector<HeicFrameSource> results(tweens.size());
    std::mutex mutex;
    int done = 0;
    const int count = static_cast<int>(tweens.size());
    platform::forEachBounded(
        tweens.size(), maxConcurrentTweenBlends, stop,
        [&](std::size_t index, std::stop_token itemStop) {
            platform::throwIfCancelled(itemStop);
            const auto& tween = tweens[index];
            const auto position = positionOf(allImages, tween.id);
            const HeicFrameSource* previous = nullptr;
            const HeicFrameSource* next = nullptr;
            if (position) {
                if (auto found = nearestKey(allImages, *position, -1))
                    previous = keyFrame(keyFrames, allImages[*found].id);
                if (auto found = nearestKey(allImages, *position, +1))
                    next = keyFrame(keyFrames, allImages[*found].id);
            }
            if (!previous) {
                consoleLine("[HeicGenerator] WARNING: No previous key frame for tween " +
                            tween.fileName + ", skipping");
                throw HeicGeneratorError::processingFailed("No previous key frame for tween");
            }
            if (!next) {
                consoleLine("[HeicGenerator] WARNING: No next key frame for tween " +
                            tween.fileName + ", skipping");
                throw HeicGeneratorError::processingFailed("No next key frame for tween");
            }
            const double t = tweenBlendFactor(tween, previous->image, next->image);
            results[index] = tweenGenerator.blendFrame(
                *previous, *next, tween, static_cast<int>(index), config.outputDirectory, t);
            std::lock_guard lock(mutex);
            ++done;
            if (progress)
                progress(static_cast<int>((0.98 + double(done) / count * 0.02) * total), total,
                         "Regenerating tweens (" + std::to_string(done) + "/" +
                             std::to_string(count) + ")...");
        });
    return results;
}

PreparedFrames
HeicGenerator::prepareFrames(const std::vector<WallpaperImage>& images,
                             const std::optional<HeicPreprocessConfig>& preprocessConfig, int total,
                             const ProgressCallback& progress, std::stop_token stop) const {
    if (!preprocessConfig || !preprocessConfig->wantsPreprocessing()) {
        // Direct: the source files go to the encoder as they are; no clean-up, no progress.
        PreparedFrames prepared;
        prepared.frames.reserve(images.size());
        for (const auto& image : images) {
            if (!image.sourcePath)
                throw HeicGeneratorError::invalidConfiguration("Missing source path for image");
            prepared.frames.push_back(HeicFrameSource{image, *image.sourcePath, FrameSize{}});
        }
        return prepared;
    }
    const auto& config = *preprocessConfig;
    const auto tweenCount = std::count_if(images.begin(), images.end(),
                                          [](const WallpaperImage& i) { return i.isTween; });

    if (tweenCount == 0 || !config.upscaler) {
        consoleLine("[HeicGenerator] Using standard path (no tweens or upscaling)");
        auto session = HeicPreprocessor(config).preprocess(
            images,
            [&](int current, int, const std::string& message) {
                if (progress)
                    progress(current, total, message);
            },
            stop);
        auto cleanup = removeUnlessKept(session);
        return PreparedFrames{std::move(session.frames), std::move(cleanup)};
    }

    // Optimized: upscale the key frames alone, then blend the tweens anew from them.
    consoleLine("[HeicGenerator] Using optimized upscale-before-tween path (" +
                std::to_string(tweenCount) + " tweens)");
    std::vector<WallpaperImage> keys;
    std::vector<WallpaperImage> tweens;
    for (const auto& image : images)
        (image.isTween ? tweens : keys).push_back(image);
    consoleLine("[HeicGenerator] Optimized path: " + std::to_string(keys.size()) + " key frames, " +
                std::to_string(tweens.size()) + " tweens");
    if (keys.empty())
        throw HeicGeneratorError::invalidConfiguration("No key frames found (only tweens)");
    if (progress)
        progress(0, total, "Upscaling " + std::to_string(keys.size()) + " key frames...");

    auto session = HeicPreprocessor(config).preprocess(
        keys,
        [&](int current, int steps, const std::string& message) {
            if (progress)
                progress(static_cast<int>(double(current) / steps * 0.98 * total), total, message);
        },
        stop);
    // From here on the session's folder is ours to clean, whatever happens.
    PreparedFrames prepared;
    prepared.cleanup = removeUnlessKept(session);
    struct CleanOnFailure {
        PreparedFrames& prepared;
        bool armed = true;
        ~CleanOnFailure() {
            if (armed && prepared.cleanup)
                try {
                    prepared.cleanup();
                } catch (...) {
                }
        }
    } guard{prepared};
    consoleLine("[HeicGenerator] Upscaled " + std::to_string(session.frames.size()) +
                " key frames");

    const TweenGenerator tweenGenerator;
    auto blended =
        regenerateTweens(tweens, images, session, tweenGenerator, config, total, progress, stop);
    consoleLine("[HeicGenerator] Regenerated " + std::to_string(blended.size()) + " tweens");

    prepared.frames = std::move(session.frames);
    prepared.frames.insert(prepared.frames.end(), std::make_move_iterator(blended.begin()),
                           std::make_move_iterator(blended.end()));
    std::stable_sort(prepared.frames.begin(), prepared.frames.end(),
                     [&](const HeicFrameSource& a, const HeicFrameSource& b) {
                         const auto pa = positionOf(images, a.image.id);
                         const auto pb = positionOf(images, b.image.id);
                         return pa && pb && *pa < *pb;
                     });
    consoleLine("[HeicGenerator] Combined frames: " + std::to_string(prepared.frames.size()) +
                " total");
    guard.armed = false;
    return prepared;
}

} // namespace lumivesper::exporting
